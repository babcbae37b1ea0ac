#include <QVCore/Internal/QVToldStatus.h>

#include <utility>

namespace {

constinit thread_local int toldStatus = 0;

}  // namespace

QVToldStatus::QVToldStatus(int status) noexcept : outer_(std::exchange(toldStatus, status)) {}

QVToldStatus::~QVToldStatus() { toldStatus = outer_; }

int QVToldStatus::current() noexcept { return toldStatus; }
