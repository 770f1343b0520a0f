#ifndef TVBASE_TRACE_LOG_CFG_H
#define TVBASE_TRACE_LOG_CFG_H

// The record that switches the call trace on, byte for byte the same in the
// file "TvLog.cfg" beside a program and in the block shared by all processes.
// Numbers are little-endian; strings are 8-bit text ended by a zero inside
// their field. A record is valid when `version` is 1 and `crc` is the TvCrc
// (default start value) of every byte before it.

#include <bit>
#include <cstddef>
#include <cstdint>

struct TvLogCfg {
  std::uint32_t version;
  char logFolder[260];   // put in front of the log file's name unchanged
  char programs[2048];   // "*" or program file names separated by ';'
  char users[2045];      // "*" or user names separated by ';'
  char options[512];     // option words separated by ';'
  bool filter0;          // trace objects of filter class 0 write
  bool filter1;          // trace objects of filter class 1 write
  bool deleteOnClose;    // the log file goes when the library is unloaded
  bool debugEcho;        // each line goes to standard error as well
  std::uint8_t alignment[3];
  std::uint32_t crc;
};

static_assert(std::endian::native == std::endian::little, "the record is little-endian");
static_assert(sizeof(bool) == 1);
static_assert(offsetof(TvLogCfg, version) == 0);
static_assert(offsetof(TvLogCfg, logFolder) == 4);
static_assert(offsetof(TvLogCfg, programs) == 264);
static_assert(offsetof(TvLogCfg, users) == 2312);
static_assert(offsetof(TvLogCfg, options) == 4357);
static_assert(offsetof(TvLogCfg, filter0) == 4869);
static_assert(offsetof(TvLogCfg, filter1) == 4870);
static_assert(offsetof(TvLogCfg, deleteOnClose) == 4871);
static_assert(offsetof(TvLogCfg, debugEcho) == 4872);
static_assert(offsetof(TvLogCfg, alignment) == 4873);
static_assert(offsetof(TvLogCfg, crc) == 4876);
static_assert(sizeof(TvLogCfg) == 4880);

#endif  // TVBASE_TRACE_LOG_CFG_H
