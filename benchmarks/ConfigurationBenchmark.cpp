// How long it takes to read one leaf, three keys down, out of a configuration of 500 KB, and the
// whole of it: with the core, the read from the user defaults included, and with two common JSON
// libraries that are handed the same text. Configurations come in three shapes: with much text,
// with much white space, and with many numbers.
//
//   build/release/benchmarks/ConfigurationBenchmark --benchmark_enable_random_interleaving=true
//       --benchmark_repetitions=15 --benchmark_report_aggregates_only=true

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

enum Shape { kStrings, kWhiteSpace, kNumbers };

std::string vendor(Shape shape, int number) {
  const std::string id = std::to_string(number);
  if (shape == kNumbers) {
    return "[" + id + ", " + std::to_string(number / 7.0) + ", -" + id + "0017, 1." + id + "e-3],";
  }
  if (shape == kWhiteSpace) {
    return "\n      {\n        \"id\": " + id + ",\n        \"purposes\": [\n          1,\n" +
           "          2\n        ],\n        \"consent\": true\n      },";
  }
  return R"({"id": )" + id + R"(, "name": "Vendor \u2116 )" + id +
         R"(", "purposes": [1, 2, 3, 7, 10], "retention": 365.25, "consent": true, )" +
         R"("policyUrl": "https://vendor)" + id + R"(.example.invalid/privacy?lang=en", )" +
         R"("description": "Stores and reads what it needs on the device, \"essential\" only."},)";
}

/// Half of the vendors stand before the leaf and half of them after it.
std::string configurationText(Shape shape) {
  std::string vendors;
  for (int number = 1; vendors.size() < kTextSize / 2; ++number) vendors += vendor(shape, number);
  vendors.pop_back();
  return R"({"lists": {"first": [)" + vendors + R"(]}, "privacy": {"banner": {"version": )" +
         std::to_string(kLeaf) + R"(}}, "more": {"second": [)" + vendors + "]}}";
}

const std::string& text(const benchmark::State& state) {
  static const std::string texts[] = {configurationText(kStrings), configurationText(kWhiteSpace),
                                      configurationText(kNumbers)};
  return texts[state.range(0)];
}

void finish(benchmark::State& state, bool isRight) {
  constexpr const char* kNames[] = {"strings", "white space", "numbers"};
  state.SetLabel(kNames[state.range(0)]);
  if (!isRight) state.SkipWithError("the text was not read");
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text(state).size()));
}

/// What `read` takes with a configuration that holds the text.
template <class Read>
void readWithCore(benchmark::State& state, const Read& read) {
  const QVPlatform::String key("configuration_benchmark");
  QVUserDefaults::saveInfoToUserDefaultsForLabel(QVPlatform::String(text(state)), key);
  QVConfigurationFile file;
  file.setSharedName(key);
  bool isRight = true;
  for (auto _ : state) isRight &= read(file);
  finish(state, isRight);
}

void readLeafWithCore(benchmark::State& state) {
  const QVPlatform::String path("privacy/banner/version");
  readWithCore(state, [&](QVConfigurationFile& file) {
    return file.getJsonLeafFromPath(path).intValue() == kLeaf;
  });
}
BENCHMARK(readLeafWithCore)->DenseRange(kStrings, kNumbers);

void readAllWithCore(benchmark::State& state) {
  readWithCore(state, [](QVConfigurationFile& file) { return !file.getJSONDictionary().isNil(); });
}
BENCHMARK(readAllWithCore)->DenseRange(kStrings, kNumbers);

void readLeafWithRapidJSON(benchmark::State& state) {
  bool isRight = true;
  for (auto _ : state) {
    rapidjson::Document document;
    document.Parse(text(state).data(), text(state).size());
    isRight &= document["privacy"]["banner"]["version"].GetInt() == kLeaf;
  }
  finish(state, isRight);
}
BENCHMARK(readLeafWithRapidJSON)->DenseRange(kStrings, kNumbers);

void readLeafWithNlohmannJSON(benchmark::State& state) {
  bool isRight = true;
  for (auto _ : state) {
    const auto document = nlohmann::json::parse(text(state));
    isRight &= document["privacy"]["banner"]["version"].get<int>() == kLeaf;
  }
  finish(state, isRight);
}
BENCHMARK(readLeafWithNlohmannJSON)->DenseRange(kStrings, kNumbers);

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
