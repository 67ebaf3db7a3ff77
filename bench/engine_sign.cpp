// The plugin's own CPU time per signature, without the card's RSA: the
// signature engine hashes the message and builds the DigestInfo, and a card
// stub answers every signing with a fixed 256-byte cryptogram at no cost.
// What remains is the engine's work (and the stub's copy of 256 bytes).
#include "UnconnectedChannel.hpp"

#include "app/IApplication.hpp"
#include "app/pkcs15/impl/RsaSignatureEngine.hpp"
#include "card/service/ICryptographyService.hpp"

#include <benchmark/benchmark.h>
#include <boost/make_shared.hpp>

namespace {

class FixedCryptogram : public card::service::ICardSignature {
public:
    void init(const card::IChannel&, const card::service::KeyRef&, int) override {}
    const std::string& getAlgorithm() const override { return algorithm_; }
    mw::ByteBuffer sign(const card::IChannel&, const mw::ByteBuffer&) override {
        return cryptogram_;
    }

private:
    std::string algorithm_ = "1.2.840.113549.1.1.1";
    mw::ByteBuffer cryptogram_ = mw::ByteBuffer(256);
};

const app::AlgorithmRow rows[] = {
    {"1.2.840.113549.1.1.5", "1.3.14.3.2.26", "2B0E03021A"},
    {"1.2.840.113549.1.1.11", "2.16.840.1.101.3.4.2.1", "608648016503040201"},
    {"1.2.840.113549.1.1.13", "2.16.840.1.101.3.4.2.3", "608648016503040203"},
};

// Argument 0: the row (SHA-1, SHA-256, SHA-512); argument 1: message bytes.
void engineSign(benchmark::State& state) {
    const app::pkcs15::impl::RsaSignatureEngine engine(boost::make_shared<FixedCryptogram>(),
                                                       rows[state.range(0)]);
    const UnconnectedChannel channel;
    const mw::ByteBuffer message(static_cast<std::size_t>(state.range(1)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(engine.sign(channel, message));
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(1));
}

// The same without hashing: raw RSA passes the caller's DigestInfo through.
void engineSignRaw(benchmark::State& state) {
    const app::pkcs15::impl::RsaSignatureEngine engine(boost::make_shared<FixedCryptogram>());
    const UnconnectedChannel channel;
    const mw::ByteBuffer digestInfo(51);
    for (auto _ : state) {
        benchmark::DoNotOptimize(engine.sign(channel, digestInfo));
    }
}

BENCHMARK(engineSign)->ArgsProduct({{0, 1, 2}, {64, 64 * 1024}});
BENCHMARK(engineSignRaw);

} // namespace

BENCHMARK_MAIN();
