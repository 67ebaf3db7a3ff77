#include "tools/p15tool/Digest.hpp"

#include "tools/p15tool/Progress.hpp"
#include "tools/p15tool/Streams.hpp"
#include "tools/p15tool/ToolError.hpp"

#define CRYPTOPP_ENABLE_NAMESPACE_WEAK 1
#include <cryptopp/md5.h>
#include <cryptopp/ripemd.h>
#include <cryptopp/sha.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <vector>

namespace p15tool {

namespace {

using HashFactory = std::unique_ptr<CryptoPP::HashTransformation> (*)();

template <class Hash> std::unique_ptr<CryptoPP::HashTransformation> make() {
    return std::make_unique<Hash>();
}

// A hash by its --alg name, with the DER content of its OID.
struct HashKind {
    const char* name;
    std::vector<unsigned char> oid;
    HashFactory make;
};

const HashKind hashKinds[] = {
    {"sha1", {0x2B, 0x0E, 0x03, 0x02, 0x1A}, make<CryptoPP::SHA1>},
    {"sha224", {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x04}, make<CryptoPP::SHA224>},
    {"sha256", {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x01}, make<CryptoPP::SHA256>},
    {"sha384", {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x02}, make<CryptoPP::SHA384>},
    {"sha512", {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x03}, make<CryptoPP::SHA512>},
    {"md5", {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x02, 0x05}, make<CryptoPP::Weak::MD5>},
    {"ripemd160", {0x2B, 0x24, 0x03, 0x02, 0x01}, make<CryptoPP::RIPEMD160>},
};

// SEQUENCE { SEQUENCE { OID, NULL }, OCTET STRING hash }; every length here
// is below 128, so each takes one byte.
mw::ByteBuffer encodeDigestInfo(const std::vector<unsigned char>& oid, const mw::ByteBuffer& hash) {
    const auto algorithmLength = static_cast<unsigned char>(oid.size() + 4);
    const auto hashLength = static_cast<unsigned char>(hash.size());
    mw::ByteBuffer info{0x30, static_cast<unsigned char>(algorithmLength + hashLength + 4),
                        0x30, algorithmLength,
                        0x06, static_cast<unsigned char>(oid.size())};
    info.append(oid.data(), oid.size());
    const unsigned char null[] = {0x05, 0x00, 0x04, hashLength};
    info.append(null, sizeof null);
    info.append(hash);
    return info;
}

// Small enough to stay in the cache from the read to the hash (1 MiB cost a
// third more time), large enough that system calls cost little.
constexpr std::size_t chunkSize = 64 * 1024;
// A pipe has no size to check up front; this much is more than any message
// worth signing, and stops an endless one (stdin from /dev/zero).
constexpr std::uint64_t maxPipedSize = std::uint64_t{4} << 30;
constexpr std::chrono::seconds showProgressAfter{1};

const HashKind& hashKind(const std::string& name) {
    const auto kind = std::find_if(std::begin(hashKinds), std::end(hashKinds),
                                   [&](const HashKind& each) { return name == each.name; });
    if (kind == std::end(hashKinds)) {
        throw ToolError(ExitCode::usage, "no hash is called " + name);
    }
    return *kind;
}

} // namespace

mw::ByteBuffer digestInfo(const std::string& hash, const mw::ByteBuffer& head, InputFile& input) {
    const HashKind& kind = hashKind(hash);
    const auto function = kind.make();
    function->Update(head.data(), head.size());
    const auto start = std::chrono::steady_clock::now();
    std::optional<Progress> progress;
    mw::ByteBuffer chunk(chunkSize);
    std::uint64_t hashed = head.size();
    for (std::size_t got; (got = input.read(chunk.data(), chunk.size())) > 0;) {
        function->Update(chunk.data(), got);
        hashed += got;
        if (!input.knownSize() && hashed > maxPipedSize) {
            throw ToolError(ExitCode::failure, input.name() + " is larger than " +
                                                   std::to_string(maxPipedSize) +
                                                   " bytes, more than is signed from a pipe");
        }
        if (!progress && std::chrono::steady_clock::now() - start > showProgressAfter) {
            progress.emplace("Hashing " + input.name());
        }
    }
    mw::ByteBuffer value(function->DigestSize());
    function->Final(value.data());
    if (progress) {
        progress->done();
    }
    return encodeDigestInfo(kind.oid, value);
}

} // namespace p15tool
