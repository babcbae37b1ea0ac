#include "soak/Ledger.h"

#include <fcntl.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>

namespace {

struct Record {
  Time time;
  HitID hit;
  What what;
};

}  // namespace

Ledger::Ledger(const std::string& path)
    : file_(open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)) {
  if (file_ < 0) throw std::runtime_error("no ledger at " + path);
}

Ledger::~Ledger() { close(file_); }

void Ledger::write(What what, HitID hit) const {
  const Record record{timeNow(), hit, what};
  // Without a ledger no judgement: better no host than one whose deeds nobody knows.
  if (::write(file_, &record, sizeof record) != sizeof record) _exit(4);
}

void Ledger::read(const std::string& path, int life, History& history) {
  std::ifstream file(path, std::ios::binary);
  for (Record record{}; file.read(reinterpret_cast<char*>(&record), sizeof record);) {
    const Event event{record.time, life, record.what};
    if (record.hit == 0) {
      history.lives[static_cast<std::size_t>(life)].events.push_back(event);
      continue;
    }
    Hit& hit = history.hits[record.hit];
    if (record.what == What::kPosting) hit.life = life;
    hit.events.push_back(event);
  }
}
