// Output: a file that appears under its name only when it is complete.
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

#include "file_names.h"

namespace tavik {

// Owns a file descriptor and closes it; -1 if there is none.
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

// The file being written. A regular file has no name until commit() gives it one, so that nothing remains if the
// program ends before. If the file system has no such files, it has a temporary name, and the destructor and an
// interruption remove it. Names are resolved in the directory that was opened at the start, even if it is renamed
// meanwhile. Standard output and existing files of other types, such as devices and FIFOs, are written directly. Every
// failure throws ProgramError with ExitCode::output.
class OutputFile {
 public:
    // What to do if the file exists. When it is replaced, permissions are kept and symbolic links stay links.
    enum class Existing { refuse, replace };

    // The file before commit(). Hidden: it has no name or a temporary one. Visible: it can be read under the name with
    // ".unfinished" before the extension, and stays there if the program fails; an existing one is never replaced.
    enum class Draft { hidden, visible };

    // Whether the path is written directly: it is standard output or an existing file that is not a regular one.
    static bool is_direct(const std::string &path);

    OutputFile(const std::string &path, Existing existing, Draft draft = Draft::hidden);
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    // Whether it is a regular file. Then seek() and read_at() work, and written_path() can be opened before commit().
    bool is_regular() const { return directory_.get() >= 0; }
    std::string written_path() const;

    void write(std::span<const uint8_t> bytes);

    // Like lseek(): sets the position for writing and returns it; -1 on an error.
    int64_t seek(int64_t offset, int whence);

    // Like pread(): reads bytes that were written, without changing the position for writing.
    int64_t read_at(uint64_t position, std::span<uint8_t> bytes) const;

    // Flushes what is written so far to the disk. May be called by any thread. Returns 0 or an error number.
    int sync() const;

    // Flushes everything to the disk and gives the file its final name. Nothing may be written afterwards.
    void commit();

    // Removes the draft.
    void discard();

    // Size in bytes, before commit().
    uint64_t size() const;

    // Names of the file and of its visible draft in messages.
    std::string name() const { return output_name(path_); }
    std::string draft_name() const;

 private:
    void open_directly();
    void create(unsigned permissions);
    bool create_unnamed(unsigned permissions);
    void create_temporary(unsigned permissions);
    void create_visible(unsigned permissions);
    bool create_named(const std::string &name, unsigned permissions);
    void give_final_name();
    bool link_as(const std::string &name) const;
    void link_final_name();
    void rename_to_final_name();
    [[noreturn]] void fail(const char *action) const;

    std::string path_;  // as given
    Existing existing_;
    Draft draft_;
    std::filesystem::path final_path_;  // of a regular file, with symbolic links resolved
    Descriptor directory_;              // the directory of final_path_
    std::string current_name_;          // name in the directory before commit(); empty if the file has none
    Descriptor file_;
    uint64_t written_ = 0;  // bytes passed to write()
};

}  // namespace tavik
