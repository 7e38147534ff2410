#ifndef ZYN_SYSTEMTS_QRTSYSUSABLECPUS_H
#define ZYN_SYSTEMTS_QRTSYSUSABLECPUS_H

// QRTSysUsableCpus.h - how many processors this process may keep busy: those of its
// affinity mask, fewer where a control group's CPU quota allows less.

#include <string>

// The processors of the affinity mask, bounded by the quota of the process's control
// group (version 2 `cpu.max`, or version 1 `cpu.cfs_quota_us`) and of each group above
// it, rounded up. At least 1.
int QRTSysUsableCpus();

// The whole processors a quota line allows: "max 100000" none (0), "150000 100000" 2.
// `v1Period` is the period of a version 1 group, whose quota file holds the quota only
// ("-1" for none); 0 for a version 2 line.
int QRTSysQuotaCpus(std::string const& text, long long v1Period);

#endif
