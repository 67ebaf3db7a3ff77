#include "tools/p15tool/Digest.hpp"

#include "tools/p15tool/Der.hpp"
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

namespace p15tool {

namespace {

using HashFactory = std::unique_ptr<CryptoPP::HashTransformation> (*)();

template <class Hash> std::unique_ptr<CryptoPP::HashTransformation> make() {
    return std::make_unique<Hash>();
}

// A hash by its --alg name, with its OID.
struct HashKind {
    const char* name;
    const char* oid;
    HashFactory make;
};

const HashKind hashKinds[] = {
    {"sha1", "1.3.14.3.2.26", make<CryptoPP::SHA1>},
    {"sha224", "2.16.840.1.101.3.4.2.4", make<CryptoPP::SHA224>},
    {"sha256", "2.16.840.1.101.3.4.2.1", make<CryptoPP::SHA256>},
    {"sha384", "2.16.840.1.101.3.4.2.2", make<CryptoPP::SHA384>},
    {"sha512", "2.16.840.1.101.3.4.2.3", make<CryptoPP::SHA512>},
    {"md5", "1.2.840.113549.2.5", make<CryptoPP::Weak::MD5>},
    {"ripemd160", "1.3.36.3.2.1", make<CryptoPP::RIPEMD160>},
};

// SEQUENCE { SEQUENCE { OID, NULL }, OCTET STRING hash }
mw::ByteBuffer encodeDigestInfo(const char* oid, const mw::ByteBuffer& hash) {
    const der::Bytes info = der::sequence({der::sequence({der::objectIdentifier(oid), der::null()}),
                                           der::octetString(der::Bytes(hash.begin(), hash.end()))});
    return mw::ByteBuffer(info.data(), info.size());
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

mw::ByteBuffer digest(const std::string& hash, const mw::ByteBuffer& head, InputFile& input) {
    const auto function = hashKind(hash).make();
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
    return value;
}

mw::ByteBuffer digestInfo(const std::string& hash, const mw::ByteBuffer& head, InputFile& input) {
    return encodeDigestInfo(hashKind(hash).oid, digest(hash, head, input));
}

std::string hashOid(const std::string& hash) {
    return hashKind(hash).oid;
}

std::size_t hashLength(const std::string& hash) {
    return hashKind(hash).make()->DigestSize();
}

} // namespace p15tool
