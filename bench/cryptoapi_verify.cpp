// Software RSA verification and encryption through cryptoapi and through the
// plugin's engines against raw Crypto++ on the same 2048-bit key (a SHA-256
// signature; PKCS#1 v1.5 encryption of 32 bytes). Prints the time ratio of
// each path to raw Crypto++ after the table.
#include "UnconnectedChannel.hpp"

#include "app/IApplication.hpp"
#include "app/pkcs15/impl/RsaCipherEngine.hpp"
#include "app/pkcs15/impl/RsaSignatureEngine.hpp"
#include "app/pkcs15/object/P15RsaPublicKey.hpp"
#include "card/service/ICryptographyService.hpp"
#include "cryptoapi/Cipher.hpp"
#include "cryptoapi/KeyFactory.hpp"
#include "cryptoapi/PublicKey.hpp"
#include "cryptoapi/RSAPublicKeySpec.hpp"
#include "cryptoapi/Signature.hpp"
#include "mw/AutoPtr.hpp"

#include <benchmark/benchmark.h>
#include <cryptopp/osrng.h>
#include <cryptopp/rsa.h>
#include <cryptopp/sha.h>

#include <boost/make_shared.hpp>
#include <cstdio>
#include <map>
#include <stdexcept>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

const char* const sha256WithRsa = "1.2.840.113549.1.1.11";
const char* const rsaEncryption = "1.2.840.113549.1.1.1";

struct Fixture {
    CryptoPP::InvertibleRSAFunction key;
    Bytes message = Bytes(64, 0x5A);
    Bytes plaintext = Bytes(32, 0xA5); // a session key's length
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

    // Whether a cryptogram deciphers to the plaintext.
    bool opens(const unsigned char* cryptogram, std::size_t length) const {
        CryptoPP::AutoSeededRandomPool random;
        const CryptoPP::RSAES_PKCS1v15_Decryptor decryptor(key);
        Bytes recovered(decryptor.FixedMaxPlaintextLength());
        const CryptoPP::DecodingResult result =
            decryptor.Decrypt(random, cryptogram, length, recovered.data());
        recovered.resize(result.messageLength);
        return result.isValidCoding && recovered == plaintext;
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

// The public key as an engine makes it on every call: spec, key factory, key.
mw::AutoPtr<cryptoapi::PublicKey> keyAsAnEngineMakesIt(const Fixture& f) {
    const mw::AutoPtr<cryptoapi::RSAPublicKeySpec> spec(
        new cryptoapi::RSAPublicKeySpec(f.modulus, f.exponent));
    const mw::AutoPtr<cryptoapi::KeyFactory> factory(
        cryptoapi::KeyFactory::getInstance("2.5.8.1.1"));
    return mw::AutoPtr<cryptoapi::PublicKey>(factory->generatePublic(*spec));
}

// What the signature engine does on every verify: spec, key factory, key,
// signature object, then initVerify, update and verify.
void cryptoapiPerCall(benchmark::State& state) {
    const Fixture& f = fixture();
    bool verified = true;
    for (auto _ : state) {
        const mw::AutoPtr<cryptoapi::PublicKey> key = keyAsAnEngineMakesIt(f);
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

// What the cipher engine does on every encipher: spec, key factory, key,
// cipher object, then init and doFinal.
void encryptCryptoapiPerCall(benchmark::State& state) {
    const Fixture& f = fixture();
    std::size_t length = 0;
    mw::AutoPtr<unsigned char> cryptogram;
    for (auto _ : state) {
        const mw::AutoPtr<cryptoapi::PublicKey> key = keyAsAnEngineMakesIt(f);
        const mw::AutoPtr<cryptoapi::Cipher> cipher(cryptoapi::Cipher::getInstance(rsaEncryption));
        cipher->init(cryptoapi::CipherSPI::ENCRYPT_MODE, *key);
        cryptogram.reset(cipher->doFinal(length, f.plaintext.data(), f.plaintext.size()));
    }
    report(state, f.opens(cryptogram.get(), length));
}

// One cipher object bound once, enciphering again and again.
void encryptCryptoapiBound(benchmark::State& state) {
    const Fixture& f = fixture();
    const mw::AutoPtr<cryptoapi::KeyFactory> factory(
        cryptoapi::KeyFactory::getInstance("2.5.8.1.1"));
    const mw::AutoPtr<cryptoapi::PublicKey> key(
        factory->generatePublic(cryptoapi::RSAPublicKeySpec(f.modulus, f.exponent)));
    const mw::AutoPtr<cryptoapi::Cipher> cipher(cryptoapi::Cipher::getInstance(rsaEncryption));
    cipher->init(cryptoapi::CipherSPI::ENCRYPT_MODE, *key);
    std::size_t length = 0;
    mw::AutoPtr<unsigned char> cryptogram;
    for (auto _ : state) {
        cryptogram.reset(cipher->doFinal(length, f.plaintext.data(), f.plaintext.size()));
    }
    report(state, f.opens(cryptogram.get(), length));
}

// The card's half of the cipher engine, never reached when enciphering.
class NoCardCipher : public card::service::ICardCipher {
public:
    void init(const card::IChannel&, const card::service::KeyRef&, int) override {}
    const std::string& getAlgorithm() const override { return algorithm_; }
    mw::ByteBuffer decipher(const card::IChannel&, const mw::ByteBuffer&) override {
        throw std::logic_error("the card was asked to decipher");
    }

private:
    std::string algorithm_ = rsaEncryption;
};

// The engine as a host drives it: bound once to a public key object, one
// encipher call per cryptogram.
void encryptEngine(benchmark::State& state) {
    const Fixture& f = fixture();
    app::pkcs15::object::P15RsaPublicKey key{boost::weak_ptr<const app::pkcs15::fs::PuKDF>()};
    key.setModulus(f.modulus);
    key.setPublicExponent(f.exponent);
    app::pkcs15::impl::RsaCipherEngine engine(boost::make_shared<NoCardCipher>());
    const UnconnectedChannel channel;
    engine.init(channel, app::crypto::ICipher::Encipher, key);
    const mw::ByteBuffer plaintext(f.plaintext);
    mw::ByteBuffer cryptogram;
    for (auto _ : state) {
        cryptogram = engine.encipher(channel, plaintext);
    }
    report(state, f.opens(cryptogram.data(), cryptogram.size()));
}

// Raw Crypto++ as an application would use it: one encryptor and one random
// pool for all cryptograms.
void encryptRawCryptopp(benchmark::State& state) {
    const Fixture& f = fixture();
    const CryptoPP::RSAES_PKCS1v15_Encryptor encryptor(CryptoPP::RSA::PublicKey(f.key));
    CryptoPP::AutoSeededRandomPool random;
    Bytes cryptogram(encryptor.FixedCiphertextLength());
    for (auto _ : state) {
        encryptor.Encrypt(random, f.plaintext.data(), f.plaintext.size(), cryptogram.data());
    }
    report(state, f.opens(cryptogram.data(), cryptogram.size()));
}

BENCHMARK(cryptoapiPerCall)->Name("verify/cryptoapiPerCall");
BENCHMARK(cryptoapiBound)->Name("verify/cryptoapiBound");
BENCHMARK(engineVerify)->Name("verify/engine");
BENCHMARK(rawCryptopp)->Name("verify/rawCryptopp");
BENCHMARK(encryptCryptoapiPerCall)->Name("encrypt/cryptoapiPerCall");
BENCHMARK(encryptCryptoapiBound)->Name("encrypt/cryptoapiBound");
BENCHMARK(encryptEngine)->Name("encrypt/engine");
BENCHMARK(encryptRawCryptopp)->Name("encrypt/rawCryptopp");

// The console table, and the CPU time per operation of each benchmark kept
// for the ratios: the median of repetitions (--benchmark_repetitions=N) when
// there are some, the single run otherwise.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            if ((median || run.run_type == Run::RT_Iteration) && !run.error_occurred) {
                cpuTime[run.run_name.str()] = run.GetAdjustedCPUTime();
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
    // Each "group/path" against "group/rawCryptopp".
    for (const auto& [name, time] : reporter.cpuTime) {
        const std::string group = name.substr(0, name.find('/'));
        const auto raw = reporter.cpuTime.find(group + "/rawCryptopp");
        if (raw != reporter.cpuTime.end() && raw->first != name) {
            std::printf("%s / %s: %.2f\n", name.c_str(), raw->first.c_str(), time / raw->second);
        }
    }
    return 0;
}
