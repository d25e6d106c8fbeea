// The output side of the program: a file that appears only when it is complete.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace tavik {

// The file being written. A regular file is written under a temporary name in the same directory and takes its final
// name, replacing an older file but keeping its permissions, in commit(); until then destruction and interruption
// remove it. Anything else that exists under the name (device, FIFO) is written directly. Every failure throws
// ProgramError with ExitCode::output.
class OutputFile {
 public:
    explicit OutputFile(const std::string &path);
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    void write(std::span<const uint8_t> bytes);

    // Brings everything to the disk and under the final name. Nothing may be written afterwards.
    void commit();

 private:
    void open_directly();
    void create_temporary(unsigned permissions);
    void close();
    [[noreturn]] void fail(const char *action) const;

    std::string path_;            // as given
    std::string final_path_;      // with symbolic links resolved
    std::string temporary_path_;  // empty when the output is written directly or is committed
    int descriptor_ = -1;
};

// Throws ProgramError when both names lead to the same file, so that writing would destroy what is to be read.
void refuse_same_file(const std::string &input, const std::string &output);

}  // namespace tavik
