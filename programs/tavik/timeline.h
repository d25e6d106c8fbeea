// Where decoded samples belong in time: the policy for late starts, holes and overlaps.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tavik {

// A place where the time stamps of a stream are not those of its samples.
struct TimeError {
    enum class Kind { late_start, hole, overlap, jump };
    Kind kind;
    double at;       // seconds from the start of the file
    double seconds;  // how much is missing, twice there, or jumped over (backwards: negative)
};

// What is to be done before a frame is used.
struct Placement {
    int64_t silence = 0;  // samples to put before it
    int64_t cut = 0;      // samples to leave out at its start
};

// Compares the time stamps of frames with the samples that there have been. Time stamps may be rounded and may jitter,
// so that small differences mean nothing; since they are never added up, they do not grow either.
class Timeline {
 public:
    // Differences of up to `tolerance` seconds mean nothing. may_jump: the format joins streams whose clocks have
    // nothing to do with each other, such as MPEG-TS.
    Timeline(double tolerance, bool may_jump) : tolerance_(tolerance), may_jump_(may_jump) {}

    // A frame of this time stamp seems to be out of place, which the next one has to confirm: it may have a wrong
    // stamp.
    bool doubts(std::optional<double> seconds) const;

    // Places a frame of `samples` at `rate` Hz; `seconds` is its time stamp from the start of the file, if it has one,
    // and `next` that of the frame behind it, needed where there are doubts.
    Placement place(std::optional<double> seconds, std::optional<double> next, int64_t samples, int rate);

    // The next sample's time.
    double position() const { return position_; }

    // All errors, in order.
    const std::vector<TimeError> &errors() const { return errors_; }

 private:
    double lateness(std::optional<double> seconds) const { return seconds ? *seconds + offset_ - position_ : 0; }
    bool is_confirmed(double difference, std::optional<double> next, double frame_seconds) const;
    TimeError::Kind judge(double difference) const;
    bool continues(TimeError::Kind kind) const;

    double tolerance_;
    bool may_jump_;
    bool is_begun_ = false;
    double position_ = 0;  // seconds
    double offset_ = 0;    // seconds that jumps have added to the time stamps
    std::vector<TimeError> errors_;
};

// As JSON names it: late_start, hole, overlap or jump.
const char *name_of(TimeError::Kind kind);

// In words, three lines at most of each kind and how many there are more; nothing about a late start of less than
// 10 milliseconds.
std::vector<std::string> describe(const std::vector<TimeError> &errors, bool start_is_edit);

}  // namespace tavik
