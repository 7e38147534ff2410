#ifndef ZYN_SYSTEMTS_ZYNSYSCONTEXT_H
#define ZYN_SYSTEMTS_ZYNSYSCONTEXT_H

// The context a thread works in, kept in thread-local storage. Threads inherit the context
// that was current when their object was made.
int ZYNSysContextInitialize();  // not available: -1
int ZYNSysContextFinalize();    // not available: -1
void* ZYNSysContextGetRootContext();
// The calling thread's context, or the root context when it has none.
void* ZYNSysContextGetCurrentContext();
// The first non-null context ever set also becomes the root. 0, or -1 on failure.
int ZYNSysContextSetCurrentContext(void* context);

#endif
