#pragma once

namespace quorvane {

/**
 * Allows this process, for good, the system calls that a worker needs, and refuses all others: with
 * EPERM, or ENOSYS where the C library has another way then. Returns false where the system has no
 * such filter. The process can start no other and reach none: no program, no child, no signal but
 * to itself, no socket, no System V IPC; it cannot change the mode, owner, times or attributes of a
 * file, nor its own scheduling and limits. Needs PR_SET_NO_NEW_PRIVS.
 */
bool fence_calls();

}  // namespace quorvane
