#include "desk/Broadcast.h"

#include <algorithm>
#include <charconv>

namespace {

constexpr std::size_t mostSounds = 128;                   // blocks of samples
constexpr std::size_t mostAtOnce = std::size_t{1} << 18;  // bytes of events

}  // namespace

void Broadcast::begin() {
  const std::lock_guard lock(mutex_);
  ++machine_;
  records_.clear();
  first_ = 0;
  bytes_ = 0;
}

void Broadcast::add(std::uint64_t cause, std::string_view record) {
  const std::lock_guard lock(mutex_);
  records_.push_back({cause, std::string(record)});
  bytes_ += record.size();
  while (records_.size() > mostRecords || bytes_ > mostBytes) {
    bytes_ -= records_.front().text.size();
    records_.pop_front();
    ++first_;
  }
}

void Broadcast::setState(std::string_view json) {
  const std::lock_guard lock(mutex_);
  state_.set(json);
}

void Broadcast::setPulse(std::string_view json) {
  const std::lock_guard lock(mutex_);
  pulse_.set(json);
}

void Broadcast::setStatus(std::string_view json) {
  const std::lock_guard lock(mutex_);
  status_.set(json);
}

void Broadcast::addSound(std::string_view samples) {
  const std::lock_guard lock(mutex_);
  sound_.emplace_back(samples);
  if (sound_.size() <= mostSounds) return;
  sound_.pop_front();
  ++firstSound_;
}

void Broadcast::publish() { published_.notify_all(); }

void Broadcast::end() {
  {
    const std::lock_guard lock(mutex_);
    isOver_ = true;
  }
  published_.notify_all();
}

Broadcast::Place Broadcast::placeAfter(std::string_view id) {
  const std::lock_guard lock(mutex_);
  Place place{.machine = machine_, .next = first_};
  std::uint64_t machine = 0;
  std::uint64_t record = 0;
  const char* const last = id.data() + id.size();
  const auto dash = std::from_chars(id.data(), last, machine);
  if (dash.ec != std::errc{} || dash.ptr == last || *dash.ptr != '-') return place;
  if (std::from_chars(dash.ptr + 1, last, record).ec != std::errc{} || machine != machine_) return place;
  place.next = std::clamp(record + 1, first_, first_ + records_.size());
  return place;
}

Broadcast::Place Broadcast::placeAtEnd() {
  const std::lock_guard lock(mutex_);
  return {.machine = machine_,
          .next = first_ + records_.size(),
          .state = state_.version,
          .pulse = pulse_.version,
          .status = status_.version,
          .sound = firstSound_ + sound_.size()};
}

bool Broadcast::next(Kind kind, Place& place, std::chrono::milliseconds wait, std::string& events) {
  events.clear();
  std::unique_lock lock(mutex_);
  const auto until = std::chrono::steady_clock::now() + wait;
  for (;;) {
    if (isOver_ || !collect(kind, place, events)) return false;
    if (!events.empty()) return true;
    if (published_.wait_until(lock, until) == std::cv_status::timeout) return true;
  }
}

bool Broadcast::collect(Kind kind, Place& place, std::string& events) {
  if (kind == Kind::sound) {
    place.sound = std::max(place.sound, firstSound_);
    for (; place.sound < firstSound_ + sound_.size(); ++place.sound) {
      events.append("data: ").append(sound_[place.sound - firstSound_]).append("\n\n");
    }
    return true;
  }
  const bool isNew = place.machine != machine_;
  if (isNew) place = {.machine = machine_, .next = first_};
  if (kind == Kind::everything) append(events, "machine", status_, place.status);
  if (place.next < first_) return false;
  for (; place.next < first_ + records_.size() && events.size() < mostAtOnce; ++place.next) {
    const Record& record = records_[place.next - first_];
    events.append("id: ").append(std::to_string(machine_)).append("-").append(std::to_string(place.next));
    events.append("-").append(std::to_string(record.cause)).append("\ndata: ").append(record.text).append("\n\n");
  }
  if (kind == Kind::everything) {
    append(events, "state", state_, place.state);
    append(events, "pulse", pulse_, place.pulse);
  }
  return true;
}

void Broadcast::append(std::string& events, const char* name, const Latest& latest, std::uint64_t& seen) {
  if (seen == latest.version) return;
  seen = latest.version;
  events.append("event: ").append(name).append("\ndata: ").append(latest.text).append("\n\n");
}
