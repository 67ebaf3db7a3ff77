#ifndef BENCH_BENCHCARD_HPP
#define BENCH_BENCHCARD_HPP

// The plugin on an in-process virtual card, as a host drives it, with what
// the APDU-economy report counts: commands and bytes each way at the card,
// and the wall and CPU time spent inside the card (so that the plugin's own
// time is the rest).
#include "app/IApplication.hpp"
#include "app/object/ICardObjectFactory.hpp"
#include "app/object/ICardObjectRepository.hpp"
#include "card/Apdu.hpp"
#include "host/Channel.hpp"
#include "host/iso7816/Applet.hpp"
#include "host/iso7816/Card.hpp"
#include "host/loader/PluginLoader.hpp"
#include "host/vcard/VirtualCardTransport.hpp"
#include "vcard/VirtualCard.hpp"

#include <boost/make_shared.hpp>
#include <chrono>
#include <ctime>
#include <memory>

namespace bench {

using Clock = std::chrono::steady_clock;

inline double processCpuMs() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

// Passes commands on and adds up the time the card took for them.
class TimedTransport : public card::ICardTransport {
public:
    explicit TimedTransport(std::unique_ptr<card::ICardTransport> inner)
        : inner_(std::move(inner)) {}

    mw::ByteBuffer getAtr() const override { return inner_->getAtr(); }
    boost::shared_ptr<mw::ByteBuffer> transmit(const card::Apdu& command) const override {
        const Clock::time_point start = Clock::now();
        const double cpuStart = processCpuMs();
        auto answer = inner_->transmit(command);
        inCard_ += Clock::now() - start;
        cpuInCardMs_ += processCpuMs() - cpuStart;
        return answer;
    }
    void beginTransaction() const override { inner_->beginTransaction(); }
    void endTransaction() const override { inner_->endTransaction(); }

    Clock::duration inCard() const { return inCard_; }
    double cpuInCardMs() const { return cpuInCardMs_; }

private:
    std::unique_ptr<card::ICardTransport> inner_;
    mutable Clock::duration inCard_{};
    mutable double cpuInCardMs_ = 0;
};

class NoConfiguration : public plugin::IConfigurationSource {
public:
    boost::optional<std::string> readFile(const std::string&) const override { return boost::none; }
};

// What one operation cost.
struct Cost {
    std::uint64_t apdus = 0;
    std::uint64_t bytesIn = 0; // to the card
    std::uint64_t bytesOut = 0;
    double wallMs = 0;
    double cardMs = 0; // inside the card, latency model included
    double cpuMs = 0;  // process CPU time
    double cardCpuMs = 0;
    double hostMs() const { return wallMs - cardMs; }
    // The CPU time of the plugin and the host's card layer: the card's own
    // (its RSA, its file system) taken out.
    double pluginCpuMs() const { return cpuMs - cardCpuMs; }
};

struct BenchCard {
    explicit BenchCard(vcard::CardState state)
        : virtualCard(std::make_shared<vcard::VirtualCard>(std::move(state))) {
        auto inner = std::make_unique<host::VirtualCardTransport>(virtualCard);
        auto timed = std::make_unique<TimedTransport>(std::move(inner));
        transport = timed.get();
        channel = boost::make_shared<host::Channel>(std::move(timed));
        card = boost::make_shared<host::iso7816::Card>(channel);
    }

    void open() {
        application = loader.getApplications(card, *channel).at(0);
        repository = boost::dynamic_pointer_cast<app::object::ICardObjectRepository>(application);
        factory = boost::dynamic_pointer_cast<app::object::ICardObjectFactory>(application);
    }

    template <class Operation> Cost measure(const Operation& operation) {
        const vcard::Instrumentation::Counters before = virtualCard->instrumentation().counters();
        const Clock::duration cardBefore = transport->inCard();
        const double cardCpuBefore = transport->cpuInCardMs();
        const double cpuBefore = processCpuMs();
        const Clock::time_point start = Clock::now();
        operation();
        const Clock::duration wall = Clock::now() - start;
        const double cpuAfter = processCpuMs();
        const vcard::Instrumentation::Counters& after = virtualCard->instrumentation().counters();
        Cost cost;
        cost.apdus = after.commands - before.commands;
        cost.bytesIn = after.bytesIn - before.bytesIn;
        cost.bytesOut = after.bytesOut - before.bytesOut;
        cost.wallMs = std::chrono::duration<double, std::milli>(wall).count();
        cost.cardMs =
            std::chrono::duration<double, std::milli>(transport->inCard() - cardBefore).count();
        cost.cpuMs = cpuAfter - cpuBefore;
        cost.cardCpuMs = transport->cpuInCardMs() - cardCpuBefore;
        return cost;
    }

    std::shared_ptr<vcard::VirtualCard> virtualCard;
    TimedTransport* transport = nullptr;
    boost::shared_ptr<host::Channel> channel;
    boost::shared_ptr<host::iso7816::Card> card;
    host::PluginLoader loader{P15APP_PATH, NoConfiguration()};
    boost::shared_ptr<app::IApplication> application;
    boost::shared_ptr<app::object::ICardObjectRepository> repository;
    boost::shared_ptr<app::object::ICardObjectFactory> factory;
};

} // namespace bench

#endif
