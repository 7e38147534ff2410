#ifndef ZYN_TESTS_CAPTURESTDOUT_H
#define ZYN_TESTS_CAPTURESTDOUT_H

#include <functional>
#include <string>

// Runs `body` in a forked child whose standard output goes to a pipe, and returns the
// bytes it wrote; the child's exit status goes to `status` if given (0 once `body`
// returns). The child's statics start as copies of ours, so a test can switch
// process-wide flags in `body` without touching the parent.
std::string CaptureStdoutOfChild(std::function<void()> const& body, int* status = nullptr);

#endif
