#include "output/SyncRule.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <iterator>
#include <utility>

namespace ko_player {
namespace {

using std::chrono::milliseconds;

/// Sound does not wait longer than this for a picture that does not come.
constexpr milliseconds kLongestWithoutPicture{200};
/// The pictures of a slow stream may be as far apart; it is enough to find the place of the first part.
constexpr milliseconds kSlowestPictures{1200};
/// Stamps that are further apart have nothing to do with each other.
constexpr double kUnrelatedMs = 10'000;
/// A correction needs as many witnesses: a single late picture is none.
constexpr std::size_t kWitnesses = 5;
/// Pictures that catch up hurry by a quarter, never more.
constexpr double kSteepestSlope = -0.25;
constexpr double kFlatSlope = 0.05; ///< less is the jitter of the pictures
constexpr double kOffsetsKeptMs = 600;
constexpr std::size_t kFewestForSlope = 6;
constexpr double kOffsetJumpMs = 200;

constexpr double kSmoothingMs = 3000;
constexpr double kPpmPerMs = 20; ///< half of a deviation is gone after 35 s
constexpr int kMostPpm = 2000;   ///< a thirtieth of a semitone
constexpr double kSlowDeadZoneMs = 12;

double toMs(base::TimePoint time) {
    return std::chrono::duration<double, std::milli>(time.time_since_epoch()).count();
}

double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

} // namespace

void SyncRule::restart(base::TimePoint now) {
    begins_ = true;
    begunAt_ = now;
    offsets_.clear();
    recent_.clear();
    slowSince_.reset();
    slowAimMs_.reset();
    speedUpPpm_ = 0;
}

SyncRule::Decision SyncRule::next(const Situation& situation) {
    if (!begunAt_) {
        begunAt_ = situation.now;
    }
    const std::optional<double> lateMs = lateness(situation);
    if (!lateMs) {
        const base::TimePoint patienceEnds = *begunAt_ + kLongestWithoutPicture;
        if (begins_ && !situation.shown && situation.now < patienceEnds) {
            return {Action::Wait,
                    std::chrono::duration<double, std::milli>(patienceEnds - situation.now).count()};
        }
        begins_ = begins_ && !situation.shown;
        return {Action::WriteFree};
    }
    return begins_ ? atBegin(*lateMs) : onTheWay(*lateMs, situation.now);
}

std::optional<double> SyncRule::lateness(const Situation& situation) {
    if (!situation.shown) {
        return std::nullopt;
    }
    follow(*situation.shown);
    const auto age = situation.now - situation.shown->when;
    if (age > (begins_ ? kSlowestPictures : kLongestWithoutPicture)) {
        return std::nullopt;
    }
    const double heardAtMs = toMs(situation.now) + situation.heldMs;
    const Offset& last = offsets_.back();
    const double offsetThen = last.offsetMs + slope() * (heardAtMs - last.atMs);
    const double late = heardAtMs - offsetThen - situation.stampMs;
    return std::abs(late) > kUnrelatedMs ? std::nullopt : std::optional(late);
}

void SyncRule::follow(const ShownPicture& shown) {
    const double atMs = toMs(shown.when);
    const Offset offset{atMs, atMs - static_cast<double>(shown.stampMs)};
    if (!offsets_.empty()) {
        if (offsets_.back().atMs == atMs && offsets_.back().offsetMs == offset.offsetMs) {
            return;
        }
        if (std::abs(offsets_.back().offsetMs - offset.offsetMs) > kOffsetJumpMs) {
            offsets_.clear();
        }
    }
    offsets_.push_back(offset);
    while (offsets_.front().atMs < atMs - kOffsetsKeptMs) {
        offsets_.pop_front();
    }
}

double SyncRule::slope() const {
    if (offsets_.size() < kFewestForSlope) {
        return 0;
    }
    // Between the middles of both halves: a picture that was shown late does not bend it.
    const auto middle = offsets_.begin() + static_cast<std::ptrdiff_t>(offsets_.size() / 2);
    const auto of = [](auto begin, auto end, double Offset::*what) {
        std::vector<double> values;
        std::transform(begin, end, std::back_inserter(values), [&](const Offset& o) { return o.*what; });
        return median(std::move(values));
    };
    const double spanMs =
        of(middle, offsets_.end(), &Offset::atMs) - of(offsets_.begin(), middle, &Offset::atMs);
    const double stepMs =
        of(middle, offsets_.end(), &Offset::offsetMs) - of(offsets_.begin(), middle, &Offset::offsetMs);
    const double slope = spanMs > 0 ? stepMs / spanMs : 0;
    return slope > -kFlatSlope ? 0 : std::max(slope, kSteepestSlope);
}

SyncRule::Decision SyncRule::atBegin(double lateMs) {
    if (lateMs > bounds_.lateAtBegin) {
        return {Action::Skip, lateMs - bounds_.aim};
    }
    if (lateMs < 0) {
        return {Action::Wait, -lateMs};
    }
    begins_ = false;
    return {Action::Write};
}

SyncRule::Decision SyncRule::onTheWay(double lateMs, base::TimePoint now) {
    recent_.push_back(lateMs);
    if (recent_.size() > kWitnesses) {
        recent_.erase(recent_.begin());
    }
    if (slope() < 0) {
        return lateMs > bounds_.lateBehindHurry ? correct(Action::Skip, lateMs - bounds_.aimBehindHurry)
                                                : Decision{Action::Write};
    }
    if (recent_.size() == kWitnesses) {
        const double middle = median(recent_);
        if (middle > bounds_.late) {
            return correct(Action::Skip, middle - bounds_.aim);
        }
        if (middle < bounds_.early) {
            return correct(Action::Wait, bounds_.aim - middle);
        }
    }
    adjustSpeed(lateMs, now);
    return {Action::Write};
}

void SyncRule::adjustSpeed(double lateMs, base::TimePoint now) {
    if (!slowSince_) {
        slowSince_ = slowAt_ = now;
        slowMs_ = lateMs;
        return;
    }
    const double passedMs = std::chrono::duration<double, std::milli>(now - slowAt_).count();
    slowAt_ = now;
    slowMs_ += (lateMs - slowMs_) * (1 - std::exp(-passedMs / kSmoothingMs));
    if (now - *slowSince_ < milliseconds(static_cast<int>(kSmoothingMs))) {
        return;
    }
    if (!slowAimMs_) {
        slowAimMs_ = bounds_.keepsWhatItFinds ? std::clamp(slowMs_, 0.0, bounds_.late) : bounds_.aim;
    }
    const double offMs = slowMs_ - *slowAimMs_;
    if (speedUpPpm_ != 0 || std::abs(offMs) > kSlowDeadZoneMs) {
        speedUpPpm_ = static_cast<int>(std::clamp(offMs * kPpmPerMs, -1.0 * kMostPpm, 1.0 * kMostPpm));
    }
}

SyncRule::Decision SyncRule::correct(Action action, double ms) {
    recent_.clear();
    slowSince_.reset();
    slowAimMs_.reset();
    return {action, ms};
}

} // namespace ko_player
