// Software RSA verification through cryptoapi and through the plugin's
// signature engine against raw Crypto++ on the same 2048-bit key and SHA-256
// signature. Prints the time ratio of each path to raw Crypto++ after the
// table.
#include "UnconnectedChannel.hpp"

#include "app/IApplication.hpp"
#include "app/pkcs15/impl/RsaSignatureEngine.hpp"
#include "app/pkcs15/object/P15RsaPublicKey.hpp"
#include "cryptoapi/KeyFactory.hpp"
#include "cryptoapi/PublicKey.hpp"
#include "cryptoapi/RSAPublicKeySpec.hpp"
#include "cryptoapi/Signature.hpp"
#include "mw/AutoPtr.hpp"

#include <benchmark/benchmark.h>
#include <cryptopp/osrng.h>
#include <cryptopp/rsa.h>
#include <cryptopp/sha.h>

#include <cstdio>
#include <map>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

const char* const sha256WithRsa = "1.2.840.113549.1.1.11";

struct Fixture {
    CryptoPP::InvertibleRSAFunction key;
    Bytes message = Bytes(64, 0x5A);
    Bytes signature;
    mw::ByteBuffer modulus;
    mw::ByteBuffer exponent;

    Fixture() {
        CryptoPP::AutoSeededRandomPool random;
        key.GenerateRandomWithKeySize(random, 2048);
        const CryptoPP::RSASS<CryptoPP::PKCS1v15, CryptoPP::SHA256>::Signer signer(key);
        signature.resize(signer.MaxSignatureLength());
        signer.SignMessage(random, message.data(), message.size(), signature.data());
        modulus = encoded(key.GetModulus());
        exponent = encoded(key.GetPublicExponent());
    }

    static mw::ByteBuffer encoded(const CryptoPP::Integer& value) {
        mw::ByteBuffer bytes(value.MinEncodedSize());
        value.Encode(bytes.data(), bytes.size());
        return bytes;
    }
};

const Fixture& fixture() {
    static const Fixture f;
    return f;
}

void report(benchmark::State& state, bool verified) {
    if (!verified) {
        state.SkipWithError("the signature did not verify");
    }
}

// What the signature engine does on every verify: spec, key factory, key,
// signature object, then initVerify, update and verify.
void cryptoapiPerCall(benchmark::State& state) {
    const Fixture& f = fixture();
    bool verified = true;
    for (auto _ : state) {
        const mw::AutoPtr<cryptoapi::RSAPublicKeySpec> spec(
            new cryptoapi::RSAPublicKeySpec(f.modulus, f.exponent));
        const mw::AutoPtr<cryptoapi::KeyFactory> factory(
            cryptoapi::KeyFactory::getInstance("2.5.8.1.1"));
        const mw::AutoPtr<cryptoapi::PublicKey> key(factory->generatePublic(*spec));
        const mw::AutoPtr<cryptoapi::Signature> signature(
            cryptoapi::Signature::getInstance(sha256WithRsa));
        signature->initVerify(*key);
        signature->update(f.message.data(), f.message.size());
        verified &= signature->verify(f.signature.data(), f.signature.size());
    }
    report(state, verified);
}

// One signature object bound once, verifying again and again.
void cryptoapiBound(benchmark::State& state) {
    const Fixture& f = fixture();
    const mw::AutoPtr<cryptoapi::KeyFactory> factory(
        cryptoapi::KeyFactory::getInstance("2.5.8.1.1"));
    const mw::AutoPtr<cryptoapi::PublicKey> key(
        factory->generatePublic(cryptoapi::RSAPublicKeySpec(f.modulus, f.exponent)));
    const mw::AutoPtr<cryptoapi::Signature> signature(
        cryptoapi::Signature::getInstance(sha256WithRsa));
    signature->initVerify(*key);
    bool verified = true;
    for (auto _ : state) {
        signature->update(f.message.data(), f.message.size());
        verified &= signature->verify(f.signature.data(), f.signature.size());
    }
    report(state, verified);
}

// The engine as a host drives it: bound once to a public key object, one
// verify call per signature (the engine builds its provider objects anew
// each time).
void engineVerify(benchmark::State& state) {
    const Fixture& f = fixture();
    app::pkcs15::object::P15RsaPublicKey key{boost::weak_ptr<const app::pkcs15::fs::PuKDF>()};
    key.setModulus(f.modulus);
    key.setPublicExponent(f.exponent);
    app::pkcs15::impl::RsaSignatureEngine engine(
        nullptr, app::AlgorithmRow{sha256WithRsa, "2.16.840.1.101.3.4.2.1", "608648016503040201"});
    const UnconnectedChannel channel;
    engine.init(channel, app::crypto::ISignature::Verify, key);
    const mw::ByteBuffer message(f.message);
    const mw::ByteBuffer signature(f.signature);
    bool verified = true;
    for (auto _ : state) {
        verified &= engine.verify(channel, message, signature);
    }
    report(state, verified);
}

void rawCryptopp(benchmark::State& state) {
    const Fixture& f = fixture();
    const CryptoPP::RSASS<CryptoPP::PKCS1v15, CryptoPP::SHA256>::Verifier verifier(
        CryptoPP::RSA::PublicKey(f.key));
    bool verified = true;
    for (auto _ : state) {
        verified &= verifier.VerifyMessage(f.message.data(), f.message.size(), f.signature.data(),
                                           f.signature.size());
    }
    report(state, verified);
}

BENCHMARK(cryptoapiPerCall);
BENCHMARK(cryptoapiBound);
BENCHMARK(engineVerify);
BENCHMARK(rawCryptopp);

// The console table, and the CPU time per verification of each benchmark
// kept for the ratios.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
                cpuTime[run.benchmark_name()] = run.GetAdjustedCPUTime();
            }
        }
    }

    std::map<std::string, double> cpuTime;
};

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    const auto raw = reporter.cpuTime.find("rawCryptopp");
    if (raw == reporter.cpuTime.end()) {
        return 0;
    }
    for (const auto& [name, time] : reporter.cpuTime) {
        if (name != raw->first) {
            std::printf("%s / rawCryptopp: %.2f\n", name.c_str(), time / raw->second);
        }
    }
    return 0;
}
