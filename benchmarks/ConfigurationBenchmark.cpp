// How long it takes to read one leaf, three keys down, out of a configuration of 500 KB: with the
// core, the read from the user defaults included, and with two common JSON libraries that are
// handed the same text.

#include <QVCore/QVConfigurationFile.h>
#include <QVCore/QVUserDefaults.h>
#include <QVPlatform/Application.h>

#include <benchmark/benchmark.h>
#include <rapidjson/document.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

constexpr std::size_t kTextSize = 500'000;
constexpr int kLeaf = 4711;

std::string vendor(int number) {
  const std::string id = std::to_string(number);
  return R"({"id": )" + id + R"(, "name": "Vendor \u2116 )" + id +
         R"(", "purposes": [1, 2, 3, 7, 10], "retention": 365.25, "consent": true, )" +
         R"("policyUrl": "https://vendor)" + id + R"(.example.invalid/privacy?lang=en", )" +
         R"("description": "Stores and reads what it needs on the device, \"essential\" only."},)";
}

/// Half of the vendors stand before the leaf and half of them after it.
std::string configurationText() {
  std::string vendors;
  for (int number = 0; vendors.size() < kTextSize / 2; ++number) vendors += vendor(number);
  vendors.pop_back();
  return R"({"lists": {"first": [)" + vendors + R"(]}, "privacy": {"banner": {"version": )" +
         std::to_string(kLeaf) + R"(}}, "more": {"second": [)" + vendors + "]}}";
}

const std::string& text() {
  static const std::string shared = configurationText();
  return shared;
}

void finish(benchmark::State& state, bool isRight) {
  if (!isRight) state.SkipWithError("the leaf was not read");
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text().size()));
}

void readLeafWithCore(benchmark::State& state) {
  const QVPlatform::String key("configuration_benchmark");
  QVUserDefaults::saveInfoToUserDefaultsForLabel(QVPlatform::String(text()), key);
  QVConfigurationFile file;
  file.setSharedName(key);
  const QVPlatform::String path("privacy/banner/version");
  bool isRight = true;
  for (auto _ : state) isRight &= file.getJsonLeafFromPath(path).intValue() == kLeaf;
  finish(state, isRight);
}
BENCHMARK(readLeafWithCore);

void readLeafWithRapidJSON(benchmark::State& state) {
  bool isRight = true;
  for (auto _ : state) {
    rapidjson::Document document;
    document.Parse(text().data(), text().size());
    isRight &= document["privacy"]["banner"]["version"].GetInt() == kLeaf;
  }
  finish(state, isRight);
}
BENCHMARK(readLeafWithRapidJSON);

void readLeafWithNlohmannJSON(benchmark::State& state) {
  bool isRight = true;
  for (auto _ : state) {
    const auto document = nlohmann::json::parse(text());
    isRight &= document["privacy"]["banner"]["version"].get<int>() == kLeaf;
  }
  finish(state, isRight);
}
BENCHMARK(readLeafWithNlohmannJSON);

/// Where the user defaults of this program go.
class TemporaryContainer {
 public:
  TemporaryContainer() {
    std::string pattern = (std::filesystem::temp_directory_path() / "qvcore-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) std::abort();
    path_ = pattern;
    QVPlatform::Application::setContainerDirectory(pattern);
  }
  ~TemporaryContainer() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

 private:
  std::filesystem::path path_;
};

}  // namespace

int main(int argc, char** argv) {
  const TemporaryContainer container;
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
