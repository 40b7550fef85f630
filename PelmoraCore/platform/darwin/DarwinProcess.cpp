#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/param.h>
#include <sys/stat.h>
#include <sys/sysctl.h>
#include <sys/types.h>

#include "platform/Platform.h"

namespace pelmora::platform {

std::optional<ProcessEntry> processEntry(std::int32_t pid) {
    if (pid < 1) {
        return std::nullopt;
    }
    int query[4] = {CTL_KERN, KERN_PROC, KERN_PROC_PID, pid};
    struct kinfo_proc process;
    std::memset(&process, 0, sizeof process);
    std::size_t size = sizeof process;
    // A pid with no process answers with success and a size of zero.
    if (::sysctl(query, 4, &process, &size, nullptr, 0) != 0 || size == 0) {
        return std::nullopt;
    }

    ProcessEntry entry;
    entry.pid = pid;
    entry.parentPID = process.kp_eproc.e_ppid;
    entry.name = std::string(process.kp_proc.p_comm,
                             ::strnlen(process.kp_proc.p_comm, sizeof process.kp_proc.p_comm));
    entry.startTime = static_cast<double>(process.kp_proc.p_starttime.tv_sec) +
                      static_cast<double>(process.kp_proc.p_starttime.tv_usec) / 1e6;
    dev_t device = process.kp_eproc.e_tdev;
    if (device != NODEV) {
        if (const char* name = ::devname(device, S_IFCHR)) {
            entry.tty = std::string("/dev/") + name;
        }
    }
    return entry;
}

} // namespace pelmora::platform
