#pragma once

#include <mutex>
#include <string>

namespace quorvane {

/** What a process does when another one is at the same output. */
enum class WhenTaken { Leave, Wait };

/**
 * The right to make one output, and the way to record it. Of all processes on all machines that see
 * the output's folder, one has it at a time; it ends with the process. It is a lock on a byte of
 * the folder's record file, so no file is made for it.
 */
class OutputClaim {
  public:
    OutputClaim() = default;
    ~OutputClaim();
    OutputClaim(const OutputClaim&) = delete;
    OutputClaim& operator=(const OutputClaim&) = delete;

    /**
     * Makes the output's folder if need be. new_folder is the topmost folder that was missing when
     * the run began ("": none was); it goes again when nothing came to be in it. Returns false when
     * another process has the output and `when` is Leave. Throws std::system_error. Where the file
     * system knows no locks, the claim is given to everybody; then an output is still never
     * replaced unasked, as its name is taken by linking.
     */
    bool take(const std::string& output, const std::string& new_folder, WhenTaken when);

    /** Appends the line in one piece and syncs it. Throws std::system_error. */
    void record(const std::string& line);

    /**
     * Gives the claim up. Another thread may call it to end the process; it does nothing while
     * take() or record() is at work. A record file that was made for nothing goes again.
     */
    void release();

  private:
    void remove_if_empty();

    void close_file();

    std::mutex mutex_;
    std::string path_;
    std::string new_folder_;
    int file_ = -1;
};

}  // namespace quorvane
