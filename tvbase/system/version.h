#ifndef TVBASE_SYSTEM_VERSION_H
#define TVBASE_SYSTEM_VERSION_H

#include <tvbase/export.h>

#include <string>

// A product version packed into one 32-bit number that compares like a
// number: major (0-99) in bits 31-24, minor (0-9) in 23-16, sub-level (0-9) in
// 15-8 and a letter (0 for "_", 1-26 for a-z) in 7-0. Its written form is
// "12.40_" (0x0C040000) or "12.41b" (0x0C040102); 0xFFFFFFFF is the unknown
// version, written "?.???". Only the low 32 bits of an argument are read.
// All members are static and the class holds no data.
//
// Parse() gives 0 for any text that isn't exactly such a form, which is also
// the packed form of "0.00_": a caller can't tell the two apart. Compare() and
// Parse() throw nothing; ToString() only the exception of exhausted memory.
//
//   unsigned long v = TvVersion::Parse("12.41b");               // 0x0C040102
//   TvVersion::Compare(v, TvVersion::Parse("12.41a"),
//                      TvVersion::CompareSub);                   // 0
//   std::string minor = TvVersion::ToString(v, TvVersion::CompareMinor);  // "12.4"
class TVBASE_EXPORT TvVersion {
 public:
  // How far a comparison or a written form goes. Based on int, so that every
  // int is a value of the type, as Compare() and ToString() take any.
  enum CompareType : int {
    CompareMajor = 0,  // major only
    CompareMinor = 1,  // major, minor
    CompareSub = 2,    // major, minor, sub-level
    CompareFull = 3,   // all four parts
  };

  // The unknown version.
  static constexpr unsigned long Unknown = 0xFFFFFFFFul;

  // -1 if `a` is the smaller under the mask of `type`, 1 if `b` is, else 0. A
  // `type` other than 0, 1 and 2 compares all four parts.
  [[nodiscard]] static int Compare(unsigned long a, unsigned long b, CompareType type) noexcept;

  // The packed form of one or two major digits, ".", a minor and a sub-level
  // digit, and "_" or a small letter, with nothing before or after. Anything
  // else, a null pointer included, gives 0.
  [[nodiscard]] static unsigned long Parse(const char* text) noexcept;

  // The written form up to the part that `type` names: "12", "12.4", "12.40"
  // or "12.40b"; a `type` above 3 writes all four parts, a negative one gives
  // "". Letter 0 is written "_" unless `noUnderscore` is set. Parts beyond
  // their range are written by adding to '0' (or 'a'), unchecked, so they come
  // out as other characters.
  [[nodiscard]] static std::string ToString(unsigned long version, CompareType type = CompareFull,
                                            bool noUnderscore = false) {
    char buffer[kBufferSize];
    GetString(buffer, version, noUnderscore, type);
    return buffer;
  }

 private:
  // Room for the longest form, 6 characters, and the zero.
  static constexpr int kBufferSize = 7;

  static void GetString(char* buffer, unsigned long version, bool noUnderscore,
                        CompareType type) noexcept;
};

#endif  // TVBASE_SYSTEM_VERSION_H
