#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// What writer and reader of binary property lists must agree on.
///
/// A file is the magic, the objects, a table of their offsets, and a trailer of 32 bytes: five
/// unused ones and a sort version, the widths of an offset and of a reference, the number of
/// objects, the number of the root object, the offset of the table. All numbers are big-endian. An
/// object begins with a byte that holds its type and, in the low four bits, its length; if those
/// are all ones, the length follows as an integer object.
namespace QVPlatform::BinaryPropertyListFormat {

inline constexpr std::string_view kMagic = "bplist00";
inline constexpr std::size_t kTrailerSize = 32;
/// The clock of the format starts at 2001-01-01 00:00:00 UTC.
inline constexpr double kReferenceDate = 978307200;

inline constexpr std::uint8_t kFalse = 0x08;
inline constexpr std::uint8_t kTrue = 0x09;
/// May stand between objects. Here, after an integer, the number of these bytes keeps its kind,
/// which the format does not know: 0 for int64_t (or uint64_t if it must be), 1 for int32_t, 2 for
/// uint32_t, 3 for uint64_t. Other readers see the number only.
inline constexpr std::uint8_t kFill = 0x0F;
inline constexpr std::uint8_t kInteger = 0x10;  // length: exponent of its width
inline constexpr std::uint8_t kReal = 0x20;     // likewise
inline constexpr std::uint8_t kDate = 0x33;
inline constexpr std::uint8_t kData = 0x40;
inline constexpr std::uint8_t kASCIIText = 0x50;
inline constexpr std::uint8_t kUTF16Text = 0x60;  // length: in units of two bytes
inline constexpr std::uint8_t kUID = 0x80;        // length: its width less one
inline constexpr std::uint8_t kArray = 0xA0;
inline constexpr std::uint8_t kDictionary = 0xD0;  // all keys, then all values

inline constexpr std::uint8_t kTypeMask = 0xF0;
inline constexpr std::uint8_t kLengthMask = 0x0F;

}  // namespace QVPlatform::BinaryPropertyListFormat
