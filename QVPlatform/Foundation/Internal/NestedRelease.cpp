#include <QVPlatform/Foundation/Internal/NestedRelease.h>

#include <new>
#include <utility>
#include <variant>

namespace QVPlatform {
namespace {

constexpr int kDeepest = 64;

struct Descent {
  int depth = 0;
  std::vector<Value>* kept = nullptr;
};

/// Every container asks for it: this model spares the call that finds a variable of a library that
/// was loaded at run time, for which the loader keeps a few hundred bytes free.
[[gnu::tls_model("initial-exec")]] constinit thread_local Descent descent;

}  // namespace

NestedRelease::NestedRelease() noexcept : isDeep_(++descent.depth > kDeepest) {
  if (descent.depth == 1) descent.kept = &kept_;
}

NestedRelease::~NestedRelease() {
  if (descent.depth == 1) {
    while (!kept_.empty()) {
      const Value last = std::move(kept_.back());
      kept_.pop_back();
    }
  }
  --descent.depth;
}

void NestedRelease::keepOwner(const Value& value) noexcept {
  const bool isOwner = std::holds_alternative<Array>(value.storage()) ||
                       std::holds_alternative<Dictionary>(value.storage()) ||
                       std::holds_alternative<Value::ObjectReference>(value.storage());
  if (!isOwner) return;
  try {
    descent.kept->push_back(value);
  } catch (const std::bad_alloc&) {
    // Destroyed from within, which takes a piece of stack instead.
  }
}

}  // namespace QVPlatform
