// The output side of the program: a file that appears only when it is complete.
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

#include "file_names.h"

namespace tavik {

// Closes a descriptor in the end; -1 is none.
class Descriptor {
 public:
    explicit Descriptor(int number = -1) : number_(number) {}
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor() { reset(-1); }

    int get() const { return number_; }
    void reset(int number);

 private:
    int number_;
};

// The file being written. A regular file has no name until commit() gives it one, or where the file system cannot do
// that, a temporary name, which destruction and interruption remove; so whatever ends the program, nothing is left of
// it. All names are looked up in the directory as it was found at the start, wherever that is moved to. Anything else
// that exists under the name (a device, a FIFO) and standard output are written directly. Every failure throws
// ProgramError with ExitCode::output.
class OutputFile {
 public:
    enum class Existing { refuse, replace };  // replaced files keep their permissions, links to them stay links

    // What there is of the file until it is committed: nothing, or a file that others can read, under the name with
    // ".unfinished" in front of the extension, which stays there if the program fails. One that is there already is
    // never replaced.
    enum class Draft { hidden, visible };

    // What is there under the path is written directly.
    static bool is_direct(const std::string &path);

    OutputFile(const std::string &path, Existing existing, Draft draft = Draft::hidden);
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    // A regular file: seek() and read_at() work, and written_path() can be read until it is committed.
    bool is_regular() const { return directory_.get() >= 0; }
    std::string written_path() const;

    void write(std::span<const uint8_t> bytes);

    // Moves to a position as lseek() does, and returns it; -1 where that is not possible.
    int64_t seek(int64_t offset, int whence);

    // Reads what was written from a position on, with the result of pread(). The position for writing stays.
    int64_t read_at(uint64_t position, std::span<uint8_t> bytes) const;

    // Brings what is written so far to the disk; any thread may do that. The result is 0 or an error number.
    int sync() const;

    // Brings everything to the disk and under the final name. Nothing may be written afterwards.
    void commit();

    // Removes a visible draft for which there is no use any more.
    void discard();

    // Bytes, before commit().
    uint64_t size() const;

    // As messages name it, and as they name its visible draft.
    std::string name() const { return output_name(path_); }
    std::string draft_name() const;

 private:
    void open_directly();
    void create(unsigned permissions);
    bool create_unnamed(unsigned permissions);
    void create_temporary(unsigned permissions);
    void create_visible(unsigned permissions);
    bool create_named(const std::string &name, unsigned permissions);
    void take_final_name();
    bool link_as(const std::string &name) const;
    void link_final_name();
    void rename_to_final_name();
    [[noreturn]] void fail(const char *action) const;

    std::string path_;  // as given
    Existing existing_;
    Draft draft_;
    std::filesystem::path final_path_;  // of a regular file, with symbolic links resolved
    Descriptor directory_;              // that of final_path_
    std::string present_name_;          // in it until commit(); empty where the file has none
    Descriptor file_;
    uint64_t written_ = 0;  // bytes, directly
};

}  // namespace tavik
