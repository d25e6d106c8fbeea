// Positions of decoded samples in time: how late starts, holes, overlaps and jumps are handled.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tavik {

// A position where the time stamps of a stream do not match the number of samples.
struct TimeError {
    enum class Kind { late_start, hole, overlap, jump };
    Kind kind;
    double at;       // seconds from the start of the file
    double seconds;  // time stamp minus expected time: positive for late starts and holes, negative for overlaps
};

// How to place a frame.
struct Placement {
    int64_t silence = 0;  // samples to insert before it
    int64_t cut = 0;      // samples to remove from its start
};

// Compares time stamps of frames with the number of samples so far. Time stamps may be rounded and may jitter, so small
// differences are ignored. They do not accumulate, because every frame is compared with the total.
class Timeline {
 public:
    // Differences of up to `tolerance` seconds are ignored. may_jump: in this format, such as MPEG-TS, streams with
    // unrelated clocks may follow each other.
    Timeline(double tolerance, bool may_jump) : tolerance_(tolerance), may_jump_(may_jump) {}

    // Whether the time stamp differs by more than the tolerance. It may be wrong, so the next frame has to confirm it.
    bool is_suspect(std::optional<double> seconds) const;

    // Places a frame with `samples` samples at `rate` Hz. `seconds` is its time stamp from the start of the file, if it
    // has one; `next` is that of the next frame, needed only if is_suspect(seconds).
    Placement place(std::optional<double> seconds, std::optional<double> next, int64_t samples, int rate);

    // Time of the next sample in seconds.
    double position() const { return position_; }

    // All errors, in order.
    const std::vector<TimeError> &errors() const { return errors_; }

 private:
    double lateness(std::optional<double> seconds) const { return seconds ? *seconds + offset_ - position_ : 0; }
    bool is_confirmed(double difference, std::optional<double> next, double frame_seconds) const;
    TimeError::Kind classify(double difference) const;
    bool continues_overlap(TimeError::Kind kind) const;

    double tolerance_;
    bool may_jump_;
    bool is_begun_ = false;
    double position_ = 0;  // seconds
    double offset_ = 0;    // seconds to add to time stamps, because of jumps
    std::vector<TimeError> errors_;
};

// Name in JSON: late_start, hole, overlap or jump.
const char *name_of(TimeError::Kind kind);

// Describes the errors: at most three lines for each kind, and a line with the number of the others. Late starts of
// less than 10 ms are not reported.
std::vector<std::string> describe(const std::vector<TimeError> &errors, bool start_is_edit);

}  // namespace tavik
