// Reports about files, as lines of text for users and as JSON objects (RFC 8259) for programs, one per line.
#pragma once

#include <string>
#include <vector>

#include "encode_file.h"
#include "jobs.h"
#include "program_error.h"

namespace tavik {

// Totals of a run.
struct Summary {
    size_t files = 0;
    size_t encoded = 0;
    size_t skipped = 0;
    size_t failed = 0;
    double duration = 0;  // seconds of audio that were encoded
    double elapsed = 0;   // seconds that the run took
};

// Lines of text about a file; encoded_text() adds lines with details if `verbose`.
std::vector<std::string> encoded_text(const Job &job, const EncodedFile &file, bool verbose);
std::string skipped_text(const Job &job);
std::string warning_text(const Job &job, const std::string &warning);
std::string summary_text(const Summary &summary);

std::string encoded_json(const Job &job, const EncodedFile &file);
std::string skipped_json(const Job &job);
std::string failed_json(const Job &job, const std::string &problem, ExitCode exit_code);
std::string progress_json(const Job &job, const FileProgress &progress);
std::string summary_json(const Summary &summary);

// Seconds, rounded up, as 1:02:03, or as 2:03 below an hour.
std::string clock_text(double seconds);

}  // namespace tavik
