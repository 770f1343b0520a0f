#include <tvbase/trace/crc.h>

#include <array>

namespace {

constexpr std::array<std::uint32_t, 256> make_table() {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t i = 0; i < 256; ++i) {
    std::uint32_t value = i;
    for (int bit = 0; bit < 8; ++bit) value = (value & 1) ? (value >> 1) ^ 0xEDB88320u : value >> 1;
    table[i] = value;
  }
  return table;
}

constexpr std::array<std::uint32_t, 256> kTable = make_table();

}  // namespace

TvCrc& TvCrc::Add(const char* text) noexcept {
  for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p != 0; ++p) {
    running_ = (running_ >> 8) ^ kTable[(running_ ^ *p) & 0xFF];
  }
  return *this;
}

TvCrc& TvCrc::Add(const void* data, unsigned int size) noexcept {
  const unsigned char* p = static_cast<const unsigned char*>(data);
  for (unsigned int i = 0; i < size; ++i)
    running_ = (running_ >> 8) ^ kTable[(running_ ^ p[i]) & 0xFF];
  return *this;
}
