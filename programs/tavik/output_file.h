// The output side of the program: a file that appears only when it is complete.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "file_names.h"

namespace tavik {

// The file being written. A regular file is written under a temporary name in the same directory and takes its final
// name in commit(); until then destruction and interruption remove it. Anything else that exists under the name (a
// device, a FIFO) and standard output are written directly. Every failure throws ProgramError with ExitCode::output.
class OutputFile {
 public:
    enum class Existing { refuse, replace };  // replaced files keep their permissions, links to them stay links

    // What is there under the path is written directly.
    static bool is_direct(const std::string &path);

    OutputFile(const std::string &path, Existing existing);
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    // Written under a temporary name: seek() works, and written_path() can be read.
    bool is_temporary() const { return !temporary_path_.empty(); }
    const std::string &written_path() const { return temporary_path_; }

    void write(std::span<const uint8_t> bytes);

    // Moves to a position as lseek() does, and returns it; -1 where that is not possible.
    int64_t seek(int64_t offset, int whence);

    // Brings everything to the disk and under the final name. Nothing may be written afterwards.
    void commit();

    uint64_t size() const { return size_; }

    // As messages name it.
    std::string name() const { return output_name(path_); }

 private:
    void open_directly();
    void create_temporary(unsigned permissions);
    void close();
    void take_final_name();
    [[noreturn]] void fail(const char *action) const;

    std::string path_;  // as given
    Existing existing_;
    std::string final_path_;      // with symbolic links resolved
    std::string temporary_path_;  // empty when the output is written directly or is committed
    int descriptor_ = -1;
    uint64_t position_ = 0;
    uint64_t size_ = 0;  // bytes up to the highest position written
};

}  // namespace tavik
