#include "vcard/Instrumentation.hpp"

namespace vcard {

void Instrumentation::countCommand(std::size_t bytes) {
    ++counters_.commands;
    counters_.bytesIn += bytes;
}

void Instrumentation::countResponse(std::size_t bytes) {
    ++counters_.responses;
    counters_.bytesOut += bytes;
}

void Instrumentation::setLatency(std::chrono::microseconds fixed,
                                 std::chrono::nanoseconds perByte) {
    fixedLatency_ = fixed;
    perByteLatency_ = perByte;
}

std::chrono::nanoseconds Instrumentation::latencyFor(std::size_t bytes) const {
    return fixedLatency_ + perByteLatency_ * static_cast<std::int64_t>(bytes);
}

void Instrumentation::injectFault(std::uint64_t n, Fault fault, std::size_t tornBytes) {
    pendingFault_ = fault;
    faultCountdown_ = n == 0 ? 1 : n;
    tornBytes_ = tornBytes;
    faultIns_.reset();
    injectedStatusWord_ = 0x6F00;
}

void Instrumentation::injectStatusWord(std::uint8_t ins, std::uint16_t statusWord,
                                       std::uint64_t n) {
    injectFault(n, Fault::StatusWord);
    faultIns_ = ins;
    injectedStatusWord_ = statusWord;
}

std::optional<Instrumentation::Fault> Instrumentation::takeFault(std::uint8_t ins) {
    if (!pendingFault_ || (faultIns_ && *faultIns_ != ins) || --faultCountdown_ != 0)
        return std::nullopt;
    std::optional<Fault> fault = pendingFault_;
    pendingFault_.reset();
    return fault;
}

void Instrumentation::reachSavePoint(SavePoint point) {
    if (crashPoint_ && *crashPoint_ == point) {
        crashPoint_.reset();
        throw SimulatedCrash{point};
    }
}

bool Instrumentation::saveStepFails(SavePoint point) {
    if (!failingStep_ || *failingStep_ != point)
        return false;
    failingStep_.reset();
    return true;
}

} // namespace vcard
