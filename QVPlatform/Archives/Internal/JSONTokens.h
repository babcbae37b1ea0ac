#pragma once

#include <bit>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

// Steps over the tokens of a JSON text, which is UTF-8. Each function takes the place where a token
// begins and returns where it ends, or null if it is malformed. They rely on the zero byte behind
// the text of a String, which no token can contain; `end` is where that byte is.
namespace QVPlatform::JSONTokens {

inline const char* afterSpace(const char* at) {
  if (*at > ' ') return at;  // the common case, in one comparison
  while (*at == ' ' || *at == '\n' || *at == '\r' || *at == '\t') ++at;
  return at;
}

inline const char* afterDigits(const char* at) {
  const char* const begin = at;
  while (*at >= '0' && *at <= '9') ++at;
  return at == begin ? nullptr : at;
}

inline const char* afterNumber(const char* at) {
  if (*at == '-') ++at;
  at = *at == '0' ? at + 1 : afterDigits(at);
  if (at && *at == '.') at = afterDigits(at + 1);
  if (!at || (*at != 'e' && *at != 'E')) return at;
  ++at;
  if (*at == '+' || *at == '-') ++at;
  return afterDigits(at);
}

/// The escape that begins with a backslash; `character` becomes what it stands for. Two escapes
/// that are a surrogate pair count as one.
const char* afterEscape(const char* at, char32_t& character);

/// Where a run of plain text ends: at a quotation mark, a backslash or a control character.
inline const char* afterPlainText(const char* at, const char* end) {
#ifdef __SSE2__
  // Most of a JSON text is inside of strings: looking at 16 bytes at once is what makes reading it
  // quick.
  for (; end - at >= 16; at += 16) {
    __m128i bytes;
    std::memcpy(&bytes, at, sizeof bytes);
    const __m128i isMark = _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('"')),
                                        _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\\')));
    const __m128i isControl = _mm_cmpeq_epi8(_mm_min_epu8(bytes, _mm_set1_epi8(' ' - 1)), bytes);
    const int found = _mm_movemask_epi8(_mm_or_si128(isMark, isControl));
    if (found != 0) return at + std::countr_zero(static_cast<unsigned>(found));
  }
#endif
  while (*at != '"' && *at != '\\' && static_cast<unsigned char>(*at) >= ' ') ++at;
  return at;
}

/// From quotation mark to quotation mark.
inline const char* afterString(const char* at, const char* end) {
  if (*at != '"') return nullptr;
  for (at = afterPlainText(at + 1, end); *at == '\\'; at = afterPlainText(at, end)) {
    char32_t character = 0;
    at = afterEscape(at, character);
    if (!at) return nullptr;
  }
  return *at == '"' ? at + 1 : nullptr;
}

inline const char* afterLiteral(const char* at, const char* end, std::string_view literal) {
  const std::string_view rest(at, static_cast<std::size_t>(end - at));
  return rest.starts_with(literal) ? at + literal.size() : nullptr;
}

/// What is no container.
inline const char* afterScalar(const char* at, const char* end) {
  switch (*at) {
    case '"':
      return afterString(at, end);
    case 't':
      return afterLiteral(at, end, "true");
    case 'f':
      return afterLiteral(at, end, "false");
    case 'n':
      return afterLiteral(at, end, "null");
    default:
      return afterNumber(at);
  }
}

/// What the text between the quotation marks of a well-formed string stands for: the text itself
/// or, if anything is escaped, what is put into the buffer.
std::string_view unescaped(std::string_view text, std::string& buffer);

}  // namespace QVPlatform::JSONTokens
