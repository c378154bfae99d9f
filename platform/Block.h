// An owning reference to a block.
#pragma once

#include <Block.h>

#include <utility>

// Keeps a copy of a block for as long as the reference lives, as a strong reference does in Objective-C.
// `T` is the block's type. Usable from any thread.
template <typename T>
class Block {
 public:
  Block() noexcept = default;
  explicit Block(T block) : block_(Block_copy(block)) {}
  Block(const Block& other) {
    if (other.block_) block_ = Block_copy(other.block_);
  }
  Block(Block&& other) noexcept : block_(std::exchange(other.block_, nullptr)) {}
  Block& operator=(Block other) noexcept {
    std::swap(block_, other.block_);
    return *this;
  }
  ~Block() {
    if (block_) Block_release(block_);
  }

  [[nodiscard]] T get() const noexcept { return block_; }
  explicit operator bool() const noexcept { return block_ != nullptr; }

 private:
  T block_ = nullptr;
};
