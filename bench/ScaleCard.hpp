#ifndef BENCH_SCALECARD_HPP
#define BENCH_SCALECARD_HPP

// Cold listings of cards holding 1 object up to as many as the directory
// files hold: what they cost at the card, the plugin's CPU time (the card's
// own taken out) and the peak of heap memory while listing. Included by one program only: it
// replaces the global operator new and delete to follow the heap.
#include "BenchCard.hpp"

#include "app/pkcs15/oss/Codec.hpp"
#include "vcard/CardLimits.hpp"
#include "vcard/Personalise.hpp"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <malloc.h>
#include <new>

namespace bench {

inline std::atomic<std::size_t> heapNow{0};
inline std::atomic<std::size_t> heapPeak{0};

} // namespace bench

void* operator new(std::size_t size) {
    void* block = std::malloc(size == 0 ? 1 : size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    const std::size_t now = bench::heapNow += malloc_usable_size(block);
    std::size_t peak = bench::heapPeak;
    while (now > peak && !bench::heapPeak.compare_exchange_weak(peak, now)) {
    }
    return block;
}

void operator delete(void* block) noexcept {
    if (block != nullptr) {
        bench::heapNow -= malloc_usable_size(block);
        std::free(block);
    }
}

void operator delete(void* block, std::size_t) noexcept {
    operator delete(block);
}

namespace bench {

namespace oss = app::pkcs15::oss;

struct ScalePoint {
    std::size_t objects = 0;
    std::size_t directoryBytes = 0; // entries in all directory files
    std::size_t largestFile = 0;    // size of the largest directory file
    Cost cost;
    double pluginCpuMs = 0;
    std::size_t peakHeapBytes = 0; // above what was in use before the listing
};

inline oss::ObjectValue valueAt(std::uint16_t fid) {
    oss::ObjectValue value;
    value.indirectValue.pathValue.path = {0x3F,
                                          0x00,
                                          0x50,
                                          0x15,
                                          static_cast<std::uint8_t>(fid >> 8),
                                          static_cast<std::uint8_t>(fid)};
    return value;
}

template <class Key> void describeKey(Key& key, std::size_t n, std::uint16_t fid) {
    key.commonObjectAttributes.label = "key " + std::to_string(n);
    key.commonObjectAttributes.authId = oss::Bytes{0x01};
    key.classAttributes.iD = {static_cast<std::uint8_t>(n >> 8), static_cast<std::uint8_t>(n)};
    key.classAttributes.usage = {{0x20, 0x00}, 10};
    key.classAttributes.keyReference = static_cast<int>(0x80 | (n & 0x7F));
    key.typeAttributes.value = valueAt(fid);
    key.typeAttributes.modulusLength = 2048;
}

// Entry n of the card: private keys, public keys, certificates and data
// objects in turn, each kind in its own directory file.
inline std::pair<std::uint16_t, oss::Bytes> entry(std::size_t n) {
    const auto fid = static_cast<std::uint16_t>(0x4000 + n);
    switch (n % 4) {
    case 0: {
        oss::PrivateKeyType key;
        describeKey(key.privateRSAKeyValue, n, fid);
        return {0x4400, oss::encode(key)};
    }
    case 1: {
        oss::PublicKeyType key;
        describeKey(key.publicRSAKeyValue, n, fid);
        return {0x4401, oss::encode(key)};
    }
    case 2: {
        oss::CertificateType certificate;
        certificate.x509CertificateValue.commonObjectAttributes.label =
            "certificate " + std::to_string(n);
        certificate.x509CertificateValue.classAttributes.iD = {static_cast<std::uint8_t>(n)};
        certificate.x509CertificateValue.typeAttributes.value = valueAt(fid);
        return {0x4404, oss::encode(certificate)};
    }
    default: {
        oss::DataType data;
        data.opaqueDOValue.commonObjectAttributes.label = "data object " + std::to_string(n);
        data.opaqueDOValue.typeAttributes = valueAt(fid);
        return {0x4407, oss::encode(data)};
    }
    }
}

constexpr std::size_t padding = 256;

// The personalised card with `objects` entries in its directory files, each
// file grown to hold them and 256 bytes of padding (up to FFFF bytes).
inline vcard::CardState cardWith(std::size_t objects, ScalePoint& point) {
    vcard::CardState state = vcard::personalise();
    vcard::CardFile& application = *state.files.mf().child(0x5015);
    std::map<std::uint16_t, vcard::Bytes> contents;
    for (std::size_t n = 0; n < objects; ++n) {
        const auto [fid, encoding] = entry(n);
        vcard::Bytes& content = contents[fid];
        content.insert(content.end(), encoding.begin(), encoding.end());
    }
    for (auto& [fid, content] : contents) {
        point.directoryBytes += content.size();
        vcard::CardFile& file = *application.child(fid);
        const std::size_t size = std::max(file.content.size(), content.size() + padding);
        if (size > vcard::limits::maxEfSize) {
            throw std::runtime_error("directory file beyond FFFF bytes");
        }
        point.largestFile = std::max(point.largestFile, size);
        content.resize(size, 0x00);
        file.content = content;
    }
    return state;
}

// The most objects whose directory files, padding included, stay within FFFF
// bytes each.
inline std::size_t objectsFillingDirectories() {
    std::map<std::uint16_t, std::size_t> sizes;
    for (std::size_t n = 0;; ++n) {
        const auto [fid, encoding] = entry(n);
        if ((sizes[fid] += encoding.size()) + padding > vcard::limits::maxEfSize) {
            return n;
        }
    }
}

inline void listAll(const BenchCard& card) {
    const auto& repository = *card.repository;
    repository.getAuthObjects(*card.channel);
    repository.getPrivateKeys(*card.channel);
    repository.getPublicKeys(*card.channel);
    repository.getCertificates(*card.channel);
    repository.getDataObjects(*card.channel);
}

// The cheapest of a few cold listings, each by a newly opened application.
inline ScalePoint measureColdListing(std::size_t objects) {
    constexpr int rounds = 5;
    ScalePoint point;
    point.objects = objects;
    BenchCard card(cardWith(objects, point));
    for (int round = 0; round < rounds; ++round) {
        card.open();
        const std::size_t heapBefore = heapNow;
        heapPeak = heapBefore;
        const Cost cost = card.measure([&] { listAll(card); });
        if (round == 0 || cost.pluginCpuMs() < point.pluginCpuMs) {
            point.pluginCpuMs = cost.pluginCpuMs();
        }
        point.cost = cost;
        point.peakHeapBytes = std::max(point.peakHeapBytes, heapPeak - heapBefore);
    }
    return point;
}

inline std::vector<ScalePoint> measureScale(const std::vector<std::size_t>& sizes) {
    std::vector<ScalePoint> points;
    for (std::size_t objects : sizes) {
        points.push_back(measureColdListing(objects));
    }
    return points;
}

} // namespace bench

#endif
