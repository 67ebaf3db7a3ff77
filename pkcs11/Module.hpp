#ifndef PKCS11_MODULE_HPP
#define PKCS11_MODULE_HPP

#include "host/loader/ConfigurationSource.hpp"
#include "pkcs11/Errors.hpp"
#include "pkcs11/Session.hpp"
#include "pkcs11/Slot.hpp"

#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace host {
class PcscContext;
class PluginLoader;
} // namespace host

namespace pkcs11 {

// The module between C_Initialize and C_Finalize: the plugin, the slots
// and the open sessions. Every call runs under the one lock of `mutex()`:
// neither the plugin nor the card layer takes locks of its own, and a card
// answers one command at a time anyway.
class Module {
public:
    Module();
    ~Module();
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    static std::mutex& mutex();
    // The initialised module; CKR_CRYPTOKI_NOT_INITIALIZED when there is none.
    static Module& current();
    static void initialize();
    static void finalize();

    // The slots, readers first seen now added at the end.
    std::vector<CK_SLOT_ID> slotIds(bool withTokenOnly);
    Slot& slot(CK_SLOT_ID id);
    // The token in the slot, connected when needed.
    Token& token(CK_SLOT_ID id);

    CK_SESSION_HANDLE openSession(CK_SLOT_ID id, CK_FLAGS flags);
    Session& session(CK_SESSION_HANDLE handle);
    void closeSession(CK_SESSION_HANDLE handle);
    void closeAllSessions(CK_SLOT_ID id);
    SessionCounts sessionCounts(CK_SLOT_ID id) const;
    CK_STATE state(const Session& session);

    // Runs `work` on the token of slot `id` as one card operation: inside one
    // card transaction, after following a reset of the card by another
    // program. A card found gone closes the slot's sessions and drops its
    // token.
    template <class Work> auto onToken(CK_SLOT_ID id, Work&& work);
    template <class Work> auto onToken(const Session& session, Work&& work) {
        return onToken(session.slot, std::forward<Work>(work));
    }

    // The first slot whose card came or went since the last report.
    std::optional<CK_SLOT_ID> takeEvent();

private:
    void addReaders();
    void cardGone(CK_SLOT_ID id);

    host::ConfigurationSource configuration_;
    std::unique_ptr<host::PluginLoader> loader_;
    std::shared_ptr<const host::PcscContext> pcsc_;
    std::vector<std::unique_ptr<Slot>> slots_;
    std::map<CK_SESSION_HANDLE, Session> sessions_;
    CK_SESSION_HANDLE nextSession_ = 1;
};

template <class Work> auto Module::onToken(CK_SLOT_ID id, Work&& work) {
    try {
        Token& found = token(id);
        const card::Transaction held(found.channel());
        found.followReset(); // a reset noticed as the card was taken
        return work(found);
    } catch (const std::exception& error) {
        if (isCardGone(error)) {
            cardGone(id);
        }
        throw;
    }
}

} // namespace pkcs11

#endif
