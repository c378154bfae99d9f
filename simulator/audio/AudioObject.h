// What every object of the audio hardware layer is to its clients: a number and a set of properties.
#pragma once

#include <CoreAudio/CoreAudio.h>

#include <cstddef>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace simulator {

// Thrown inside the hardware layer where a call is to answer a status other than 0.
struct AudioError {
  OSStatus status;
};

// The value of a property as it is read.
class PropertyValue {
 public:
  template <typename T>
  static PropertyValue of(const T& value) {
    return PropertyValue(std::as_bytes(std::span(&value, 1)));
  }
  template <typename T>
  static PropertyValue list(const std::vector<T>& values) {
    return PropertyValue(std::as_bytes(std::span(values)));
  }
  // Read as a string object that the reader releases; none: as a null reference.
  static PropertyValue string(std::optional<std::string> text) {
    PropertyValue value({});
    value.isString_ = true;
    value.text_ = std::move(text);
    return value;
  }

  [[nodiscard]] PropertyValue settable() && {
    isSettable_ = true;
    return std::move(*this);
  }
  [[nodiscard]] bool isSettable() const { return isSettable_; }
  [[nodiscard]] bool isString() const { return isString_; }

  [[nodiscard]] UInt32 size() const { return static_cast<UInt32>(isString_ ? sizeof(CFStringRef) : bytes_.size()); }
  // Writes `size()` bytes.
  void write(void* destination) const;

 private:
  explicit PropertyValue(std::span<const std::byte> bytes) : bytes_(bytes.begin(), bytes.end()) {}

  std::vector<std::byte> bytes_;
  std::optional<std::string> text_;
  bool isString_ = false;
  bool isSettable_ = false;
};

class AudioObject {
 public:
  explicit AudioObject(AudioObjectID number) : id(number) {}
  virtual ~AudioObject() = default;
  AudioObject(const AudioObject&) = delete;
  AudioObject& operator=(const AudioObject&) = delete;

  const AudioObjectID id;

  // Throws kAudioHardwareUnknownPropertyError when the object has no such property.
  [[nodiscard]] virtual PropertyValue property(const AudioObjectPropertyAddress& address,
                                               std::span<const std::byte> qualifier) const = 0;
  // Throws kAudioHardwareIllegalOperationError where a value cannot be set, kAudioHardwareBadPropertySizeError when it
  // has another size.
  virtual void setProperty(const AudioObjectPropertyAddress&, std::span<const std::byte>) {
    throw AudioError{kAudioHardwareIllegalOperationError};
  }
};

// Whether the address is `selector` in `scope`, of the main element.
[[nodiscard]] bool isProperty(const AudioObjectPropertyAddress& address, AudioObjectPropertySelector selector,
                              AudioObjectPropertyScope scope = kAudioObjectPropertyScopeGlobal);

// How samples are said to look. Interleaved 32-bit floats are how the layer presents every linear format.
struct SampleLayout {
  AudioFormatID id = kAudioFormatLinearPCM;
  AudioFormatFlags flags = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked;
  UInt32 bits = 32;

  friend bool operator==(const SampleLayout&, const SampleLayout&) = default;
};
[[nodiscard]] AudioStreamBasicDescription streamFormat(double rate, UInt32 channels, const SampleLayout& layout);

}  // namespace simulator
