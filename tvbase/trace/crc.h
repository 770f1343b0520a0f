#ifndef TVBASE_TRACE_CRC_H
#define TVBASE_TRACE_CRC_H

#include <cstdint>

#include <tvbase/export.h>

// A CRC-32 accumulator (reflected polynomial 0xEDB88320, a byte at a time)
// with a start value of its own, 0x827C7885 unless given, and no final
// inversion: the result is the running value as it stands. It checks the
// trace's configuration record. A plain value; nothing fails.
//
//   TvCrc crc;                          // starts at 0x827C7885
//   crc.Add("abc").GetCrc();            // 0x93CE8FD0
//   TvCrc(0xFFFFFFFF).Add("abc").GetCrc();  // 0xCADBBE3D, the usual CRC-32 inverted
class TVBASE_EXPORT TvCrc {
 public:
  static constexpr std::uint32_t kDefaultStart = 0x827C7885;

  TvCrc() noexcept : running_(kDefaultStart), start_(kDefaultStart) {}
  // Only the low 32 bits of `start` count.
  explicit TvCrc(unsigned long start) noexcept
      : running_(static_cast<std::uint32_t>(start)), start_(static_cast<std::uint32_t>(start)) {}

  TvCrc(const TvCrc&) noexcept = default;
  TvCrc& operator=(const TvCrc&) noexcept = default;
  TvCrc(TvCrc&&) noexcept = default;
  TvCrc& operator=(TvCrc&&) noexcept = default;

  // Adds the bytes of a zero-ended text, without its zero. `text` must not be
  // null.
  TvCrc& Add(const char* text) noexcept;
  // Adds `size` bytes at `data`.
  TvCrc& Add(const void* data, unsigned int size) noexcept;

  std::uint32_t GetCrc() const noexcept { return running_; }

  // Goes back to the start value, the last one given to Reset(start) if any.
  TvCrc& Reset() noexcept {
    running_ = start_;
    return *this;
  }
  TvCrc& Reset(unsigned long start) noexcept {
    running_ = start_ = static_cast<std::uint32_t>(start);
    return *this;
  }

 private:
  std::uint32_t running_;
  std::uint32_t start_;
};

#endif  // TVBASE_TRACE_CRC_H
