#pragma once

#include <QVPlatform/Export.h>
#include <QVPlatform/Foundation/Value.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace QVPlatform {

/// Values as bytes: writes binary property lists ("bplist00") and reads binary and XML ones. XML is
/// what other tools write unless they are told otherwise (Python's plistlib, plistutil), and what
/// people write by hand: user defaults that an integrator puts on a device, or files of a bundle.
///
/// A property list is text, bytes, a date, a boolean, a number, or an array or dictionary of these.
/// Everything comes back as it was, kinds of numbers included; only a date before 1987 may differ
/// in its ten-millionths of a second, since the format counts from 2001. Numbers that were written
/// elsewhere are int64_t, beyond its range uint64_t, or double.
///
/// The limits hold in both directions, so that what is written
/// can be read again; time and memory are in proportion to the size.
///
/// Threads: every operation may be called from any thread; a value may change on others meanwhile.
class QVPLATFORM_EXPORT PropertyList {
 public:
  /// Bytes of one file: what offsets and other libraries can count.
  static constexpr std::size_t kMaximumSize = INT32_MAX;
  /// Values in one element of the outermost container, counted as often as they are referred to;
  /// how many elements there are is a matter of the size alone. Of XML, in all.
  static constexpr std::size_t kMaximumCount = 4U << 20;
  /// Bytes of text and data in one value that is copied, counted likewise; and of an XML file,
  /// which takes many times its size in memory.
  static constexpr std::size_t kMaximumCopySize = 256U << 20;
  /// Containers within containers.
  static constexpr std::size_t kMaximumDepth = Value::kMaximumDepth;

  /// The value as a binary property list; null when it is none or exceeds a limit.
  static Data dataWithValue(const Value& value);

  /// The value in a binary or XML property list; nil when the bytes are malformed in any way or
  /// exceed a limit. A binary file can refer to one value from many places: that is one value here
  /// too, and such a file is refused when walking through the value would take far longer than
  /// reading the file.
  static Value valueWithData(std::string_view bytes);

  /// The beginning and the end of some bytes, of a file for example, and how many these are.
  struct Ends {
    std::string_view beginning;
    std::string_view end;
    std::size_t size;
  };
  /// Whether what begins and ends like this can be a property list: a quick look that spares the
  /// reading of a large file that is none. False of XML, which takes far longer to read, when it
  /// has more bytes than that.
  static bool canBe(const Ends& ends, std::size_t maximumXMLSize = kMaximumSize);

  /// A deep copy; nil when the value is not a property list or exceeds a limit.
  static Value copy(const Value& value);
};

}  // namespace QVPlatform
