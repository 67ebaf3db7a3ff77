#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace vcard {

/// The steps of an atomic image save at which a crash can be simulated.
enum class SavePoint {
    TempFileOpened,  ///< the temporary file exists, empty
    HalfWritten,     ///< half of the new image is in the temporary file
    Written,         ///< all of it is written, not yet synced
    Synced,          ///< flushed to disk, not yet renamed
    Renamed,         ///< the temporary file replaced the image, directory not yet synced
    DirectorySynced, ///< the save is complete
};
constexpr SavePoint allSavePoints[] = {SavePoint::TempFileOpened, SavePoint::HalfWritten,
                                       SavePoint::Written,        SavePoint::Synced,
                                       SavePoint::Renamed,        SavePoint::DirectorySynced};

/// What a simulated crash throws: it leaves the image as a killed process would.
struct SimulatedCrash {
    SavePoint point;
};

/// Counters, latency model and fault injection of a virtual card, for tests and benchmarks.
class Instrumentation {
public:
    struct Counters {
        std::uint64_t commands = 0;  ///< command APDUs received
        std::uint64_t responses = 0; ///< response APDUs sent
        std::uint64_t bytesIn = 0;   ///< command bytes received
        std::uint64_t bytesOut = 0;  ///< response bytes sent, status words included
    };

    enum class Fault {
        StatusWord,  ///< answer a chosen status word (6F00 unless told) and do nothing
        CardRemoved, ///< throw CardRemoved and power the card off
        TornWrite,   ///< apply part of an UPDATE BINARY, then as CardRemoved
    };

    const Counters& counters() const { return counters_; }
    void resetCounters() { counters_ = {}; }
    void countCommand(std::size_t bytes);
    void countResponse(std::size_t bytes);

    /// Each transmit takes fixed + perByte × (command + response bytes). Off by default.
    void setLatency(std::chrono::microseconds fixed, std::chrono::nanoseconds perByte);
    void clearLatency() { setLatency({}, {}); }
    std::chrono::nanoseconds latencyFor(std::size_t bytes) const;

    /// The fault hits the n-th command from now (1 = the next one), once. A torn write keeps the
    /// first tornBytes of the update's data.
    void injectFault(std::uint64_t n, Fault fault, std::size_t tornBytes = 0);
    /// The n-th command from now with instruction byte ins is answered with statusWord and not
    /// processed, once; other instructions pass untouched and are not counted.
    void injectStatusWord(std::uint8_t ins, std::uint16_t statusWord, std::uint64_t n = 1);
    void clearFault() { pendingFault_.reset(); }
    /// Called once per command with its instruction byte: the fault due now, if any.
    std::optional<Fault> takeFault(std::uint8_t ins);
    std::size_t tornBytes() const { return tornBytes_; }
    std::uint16_t injectedStatusWord() const { return injectedStatusWord_; }

    /// The next image save stops at this point with SimulatedCrash, once.
    void crashAtSavePoint(SavePoint point) { crashPoint_ = point; }
    /// Called by the image writer at each point.
    void reachSavePoint(SavePoint point);
    /// The step of the next image save that leads to this point fails as an I/O error would
    /// (a full disk, a read-only folder, a failing directory sync), once.
    void failSaveStep(SavePoint point) { failingStep_ = point; }
    /// Called by the image writer after each step: whether to treat it as failed.
    bool saveStepFails(SavePoint point);

private:
    Counters counters_;
    std::chrono::microseconds fixedLatency_{0};
    std::chrono::nanoseconds perByteLatency_{0};
    std::optional<Fault> pendingFault_;
    std::uint64_t faultCountdown_ = 0;
    std::size_t tornBytes_ = 0;
    std::optional<std::uint8_t> faultIns_;
    std::uint16_t injectedStatusWord_ = 0x6F00;
    std::optional<SavePoint> crashPoint_;
    std::optional<SavePoint> failingStep_;
};

} // namespace vcard
