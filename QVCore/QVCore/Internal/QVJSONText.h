#pragma once

#include <QVPlatform/Foundation/String.h>
#include <QVPlatform/Foundation/Value.h>

/// The value as JSON text (RFC 8259), for readers in other languages. Null stands for nil, for
/// QVPlatform::Null, for numbers that JSON does not have, and for what lies deeper than
/// Value::kMaximumDepth or comes after a million values. Dates are seconds since 1970; bytes and
/// objects are texts, their descriptions. Callable from any thread; throws std::bad_alloc.
QVPlatform::String QVJSONText(const QVPlatform::Value& value);
