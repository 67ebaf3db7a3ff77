// Directory entries decoded per second.
#include "app/pkcs15/oss/Codec.hpp"

#include <benchmark/benchmark.h>

#include <fstream>
#include <string>

namespace oss = app::pkcs15::oss;

namespace {

// An RSA key entry of a national eID card (label, flags, authId, usage,
// access flags, key reference, key path, modulus length).
const oss::Bytes kPrKdfEntry = {
    0x30, 0x3A, 0x30, 0x17, 0x0C, 0x0E, 0x41, 0x75, 0x74, 0x68, 0x65, 0x6E, 0x74, 0x69, 0x63,
    0x61, 0x74, 0x69, 0x6F, 0x6E, 0x03, 0x02, 0x06, 0xC0, 0x04, 0x01, 0x01, 0x30, 0x0F, 0x04,
    0x01, 0x02, 0x03, 0x02, 0x05, 0x20, 0x03, 0x02, 0x03, 0xB8, 0x02, 0x02, 0x00, 0x82, 0xA1,
    0x0E, 0x30, 0x0C, 0x30, 0x06, 0x04, 0x04, 0x3F, 0x00, 0xDF, 0x00, 0x02, 0x02, 0x04, 0x00};

// privateKeys [0] with the path of EF(PrKDF).
const oss::Bytes kOdfEntry = {0xA0, 0x0A, 0x30, 0x08, 0x04, 0x06,
                              0x3F, 0x00, 0xDF, 0x00, 0x50, 0x35};

template <class T> void decodeEntries(benchmark::State& state, const oss::Bytes& entry) {
    for (auto _ : state) {
        T value;
        benchmark::DoNotOptimize(oss::decode(entry.data(), entry.size(), value));
        benchmark::DoNotOptimize(value);
    }
    state.counters["entries"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void prkdfEntry(benchmark::State& state) {
    decodeEntries<oss::PrivateKeyType>(state, kPrKdfEntry);
}
void odfEntry(benchmark::State& state) {
    decodeEntries<oss::PKCS15Objects>(state, kOdfEntry);
}

// The hex bytes of a sample directory file of the project's test data.
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

// A whole EF(CDF) of three certificates, walked entry by entry up to its padding.
void cdfFile(benchmark::State& state) {
    const oss::Bytes file = loadSample("es-dnie-especimen_cdf.hex");
    if (file.empty()) {
        state.SkipWithError("sample es-dnie-especimen_cdf.hex not found");
        return;
    }
    for (auto _ : state) {
        std::size_t position = 0;
        while (position < file.size() && file[position] != 0x00) {
            oss::CertificateType value;
            position += oss::decode(file.data() + position, file.size() - position, value);
        }
        benchmark::DoNotOptimize(position);
    }
    state.counters["files"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

} // namespace

BENCHMARK(prkdfEntry);
BENCHMARK(odfEntry);
BENCHMARK(cdfFile);
BENCHMARK_MAIN();
