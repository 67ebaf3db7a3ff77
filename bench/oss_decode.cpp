// Decode and encode throughput per entry kind, on the directory files of real
// cards in the project's test data: each file walked entry by entry up to its
// padding (decode), and its decoded entries written back (encode).
#include "app/pkcs15/oss/Codec.hpp"

#include <benchmark/benchmark.h>

#include <fstream>
#include <string>
#include <vector>

namespace oss = app::pkcs15::oss;

namespace {

// The hex bytes of a sample file of the project's test data.
oss::Bytes loadSample(const std::string& name) {
    std::ifstream file(std::string(P15_SAMPLES_DIR) + "/" + name);
    std::string line;
    std::string digits;
    while (std::getline(file, line)) {
        if (!line.empty() && line[0] != '#') {
            digits += line;
        }
    }
    oss::Bytes bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

// The entries of a file up to its first 00 or FF padding byte.
template <class T> std::vector<T> decodeAll(const oss::Bytes& file, std::size_t& used) {
    std::vector<T> entries;
    used = 0;
    while (used < file.size() && file[used] != 0x00 && file[used] != 0xFF) {
        entries.emplace_back();
        used += oss::decode(file.data() + used, file.size() - used, entries.back());
    }
    return entries;
}

void reportRates(benchmark::State& state, std::size_t entries, std::size_t bytes) {
    const auto iterations = static_cast<double>(state.iterations());
    state.counters["entries"] =
        benchmark::Counter(iterations * static_cast<double>(entries), benchmark::Counter::kIsRate);
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
}

template <class T> void decodeFile(benchmark::State& state, const char* sample) {
    const oss::Bytes file = loadSample(sample);
    std::size_t used = 0;
    const std::size_t entries = file.empty() ? 0 : decodeAll<T>(file, used).size();
    if (entries == 0) {
        state.SkipWithError((std::string("no entries in sample ") + sample).c_str());
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(decodeAll<T>(file, used));
    }
    reportRates(state, entries, used);
}

template <class T> void encodeFile(benchmark::State& state, const char* sample) {
    const oss::Bytes file = loadSample(sample);
    std::size_t used = 0;
    const std::vector<T> entries = decodeAll<T>(file, used);
    if (entries.empty()) {
        state.SkipWithError((std::string("no entries in sample ") + sample).c_str());
        return;
    }
    std::size_t bytes = 0;
    for (auto _ : state) {
        bytes = 0;
        for (const T& entry : entries) {
            const oss::Bytes encoding = oss::encode(entry);
            bytes += encoding.size();
            benchmark::DoNotOptimize(encoding.data());
        }
    }
    reportRates(state, entries.size(), bytes);
}

// One decode and one encode benchmark per kind, named "decode/<kind>" and
// "encode/<kind>".
template <class T> void registerKind(const std::string& kind, const char* sample) {
    benchmark::RegisterBenchmark(("decode/" + kind).c_str(), decodeFile<T>, sample);
    benchmark::RegisterBenchmark(("encode/" + kind).c_str(), encodeFile<T>, sample);
}

const bool registered = [] {
    registerKind<oss::PKCS15Objects>("ODF", "es-accv-gyd-smartcafe_odf.hex");
    registerKind<oss::PrivateKeyType>("PrKDF", "es-dnie-especimen_prkdf.hex");
    registerKind<oss::PublicKeyType>("PuKDF", "uy-eid-gemalto_pukdf.hex");
    registerKind<oss::CertificateType>("CDF", "es-dnie-especimen_cdf.hex");
    registerKind<oss::DataType>("DODF", "uy-eid-gemalto_dodf.hex");
    registerKind<oss::AuthenticationType>("AODF", "uy-eid-gemalto_aodf.hex");
    registerKind<oss::TokenInfo>("TokenInfo", "sc-hsm-jpm_tokeninfo.hex");
    return true;
}();

} // namespace

BENCHMARK_MAIN();
