#ifndef TESTS_E2E_PLUGINONCARD_HPP
#define TESTS_E2E_PLUGINONCARD_HPP

#include "CardFixture.hpp"

#include "app/IApplication.hpp"
#include "app/object/ICardObjectFactory.hpp"
#include "app/object/ICardObjectRepository.hpp"
#include "host/iso7816/Tlv.hpp"
#include "host/loader/PluginLoader.hpp"
#include "vcard/VirtualCard.hpp"

#include <gtest/gtest.h>
#include <memory>

namespace hosttest {

// The plugin loaded as a host loads it, on the card of CardTest with the
// user PIN verified, and the card's files as the host card layer reads them.
class PluginOnCard : public CardTest {
protected:
    void SetUp() override {
        CardTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        if (startsVerified()) {
            verifyUserPin();
        }
        reopen();
    }

    virtual bool startsVerified() const { return true; }

    // The application as a host gets it from the plugin, anew: nothing
    // cached from before.
    void reopen() {
        if (!loader_) {
            loader_ = std::make_unique<host::PluginLoader>(P15APP_PATH, NoConfiguration());
        }
        const auto application = loader_->getApplications(card_, *channel_).at(0);
        application_ = boost::dynamic_pointer_cast<app::object::ICardObjectRepository>(application);
        factory_ = boost::dynamic_pointer_cast<app::object::ICardObjectFactory>(application);
        ASSERT_TRUE(application_ && factory_);
    }

    std::uint64_t commands() const { return virtualCard_->instrumentation().counters().commands; }
    template <class Operation> std::uint64_t commandsOf(Operation operation) const {
        const std::uint64_t before = commands();
        operation();
        return commands() - before;
    }
    mw::ByteBuffer fileContent(const mw::ByteBuffer& id) const {
        files()->select(*channel_, id);
        return files()->read(*channel_, 0, 0);
    }
    bool exists(const mw::ByteBuffer& id) const {
        try {
            files()->select(*channel_, id);
            return true;
        } catch (const card::CardException&) {
            return false;
        }
    }

    // The DER value (a directory entry) at the start of `bytes`.
    static mw::ByteBuffer firstEntry(const mw::ByteBuffer& bytes) {
        return bytes.get(0, host::iso7816::TlvReader(bytes).next().end());
    }
    // Puts `content` at the start of the file, as another program would.
    void put(const mw::ByteBuffer& id, const mw::ByteBuffer& content) const {
        files()->select(*channel_, id);
        files()->update(*channel_, 0, content);
    }

    std::unique_ptr<host::PluginLoader> loader_;
    boost::shared_ptr<app::object::ICardObjectRepository> application_;
    boost::shared_ptr<app::object::ICardObjectFactory> factory_;
};

} // namespace hosttest

#endif
