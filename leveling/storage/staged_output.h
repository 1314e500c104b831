#pragma once

#include <memory>
#include <set>
#include <string>

#include "Common/files/descriptor.h"

namespace quorvane {

/** What becomes of a file that bears an output's name already. */
enum class Existing { Keep, Replace };

/** An unfinished output under its hidden name. Errors name the destination. */
class OutputPart {
  public:
    /** Opens a part that another process made. Throws std::system_error. */
    OutputPart(const std::string& destination, const std::string& part);
    ~OutputPart();
    OutputPart(const OutputPart&) = delete;
    OutputPart& operator=(const OutputPart&) = delete;

    const std::string& path() const { return path_; }

    /** Of the hidden file, for as long as this lives. */
    int descriptor() const { return file_; }

    /** Makes it empty. Throws std::system_error. */
    void clear();

    /** Replaces its content with the file's bytes. Throws std::system_error. */
    void fill_from(const std::string& from);

    /** Has the disk begin with what was written so far. */
    void start_sync() const;

    /** Syncs it to the disk, whichever process wrote it. Throws std::system_error. */
    void sync();

  protected:
    explicit OutputPart(const std::string& destination) : destination_(destination) {}

    std::string destination_;
    std::string path_;
    int file_ = -1;
};

/**
 * An output on its way: a hidden, locked file beside the destination that takes the destination's
 * name when it is complete. Without commit() it is removed.
 */
class StagedOutput : public OutputPart {
  public:
    /** Makes the destination's folder and the hidden file. Throws std::system_error. */
    explicit StagedOutput(const std::string& destination);
    ~StagedOutput();
    StagedOutput(const StagedOutput&) = delete;
    StagedOutput& operator=(const StagedOutput&) = delete;

    /**
     * True while the hidden name leads to the file that was made, which no other name leads to.
     */
    bool is_in_place() const;

    /** Leaves it to its owner alone, for as long as it is written, where the file system can. */
    void keep_private();

    /**
     * Gives it the permissions, and where the file systems allow it the group, the access list and
     * the extended attributes of another file. Until then keep its content private, so that it is
     * never more open than the other's. Throws std::system_error.
     */
    void take_protection_of(const std::string& other);

    /** Gives it the modification time of another file. */
    void take_time_of(const std::string& other);

    /**
     * Renames it, synced before, to the destination. With Existing::Keep a destination that exists
     * stays and std::system_error (EEXIST) is thrown.
     */
    void commit(Existing existing);
};

/**
 * Removes what killed runs left beside the destination. Files that a living run still writes are
 * locked and stay.
 */
void remove_stale_parts(const std::string& destination);

/**
 * The same of many outputs in one folder, by their names in it. The folder is read once, so that a
 * hundred thousand outputs cost no more than one.
 */
void remove_stale_parts(const std::string& folder, const std::set<std::string>& outputs);

/** The same of all outputs in a folder whose names end so, for a run that cannot know the names. */
void remove_stale_parts_ending(const std::string& folder, const std::string& end);

/**
 * Removes what this process has not yet committed, locked or not: for a process that is about to
 * end.
 */
void remove_own_parts(const std::string& destination);

/**
 * A text file written piece by piece that takes its name, in place of what is there, when it is
 * complete. A pipe or a device is written to as it is. All throw std::system_error.
 */
class StagedText {
  public:
    explicit StagedText(const std::string& destination);
    ~StagedText();
    StagedText(const StagedText&) = delete;
    StagedText& operator=(const StagedText&) = delete;
    void add(const std::string& text);
    void commit();

  private:
    void flush();

    std::string destination_;
    std::unique_ptr<StagedOutput> staged_;  // none for a pipe or a device
    std::unique_ptr<Descriptor> file_;
    std::string pending_;
};

/** Writes a whole text file through a StagedOutput, replacing what is there. */
void write_whole_text(const std::string& destination, const std::string& text);

}  // namespace quorvane
