#pragma once

#include <string>

namespace quorvane {

enum class Writer {
    None,    // no process of this machine has the file open for writing
    Some,    // one has
    Unknown  // the system does not say: a file of another user, or a network's file system
};

/**
 * Whether a process is still writing the file. The kernel is asked for a read lease, which it
 * grants only for a file that is not open for writing; the lease is returned at once. A process
 * that calls this must ignore SIGIO, by which the kernel reclaims the lease.
 */
Writer writer_of(const std::string& path);

}  // namespace quorvane
