#include "pkcs11/Module.hpp"

#include "host/loader/Paths.hpp"
#include "host/loader/PluginLoader.hpp"
#include "host/pcsc/PcscContext.hpp"
#include "pkcs11/Errors.hpp"

#include <algorithm>
#include <cstdlib>
#include <dlfcn.h>
#include <pthread.h>

namespace pkcs11 {

namespace {

std::unique_ptr<Module> instance;

using host::paths::directoryOf;
using host::paths::fileExists;
using host::paths::realPath;

// The plugin built beside the module in the build tree; installed, the one
// installed with it, found relative to the module's own directory.
std::string pluginPath() {
    Dl_info self{};
    if (!::dladdr(reinterpret_cast<void*>(&pluginPath), &self) || !self.dli_fname) {
        throw Failure(CKR_GENERAL_ERROR, "cannot tell where the module was loaded from");
    }
    const std::string directory = directoryOf(realPath(self.dli_fname));
    if (directory == realPath(P15KIT_PKCS11_BUILD_DIR)) {
        return P15KIT_PKCS11_BUILD_PLUGIN;
    }
    return directory + "/" + P15KIT_PKCS11_PLUGIN_FROM_MODULE;
}

// The virtual card images of P15KIT_PKCS11_CARD (separated by ':'); without
// it the user's default card image when there is one.
std::vector<std::string> cardImages() {
    std::vector<std::string> images;
    if (const char* named = std::getenv("P15KIT_PKCS11_CARD")) {
        std::string list = named;
        for (std::size_t start = 0; start <= list.size();) {
            const std::size_t end = std::min(list.find(':', start), list.size());
            if (end > start) {
                images.push_back(list.substr(start, end - start));
            }
            start = end + 1;
        }
        return images;
    }
    const std::string image = host::paths::userCardImage();
    if (!image.empty() && fileExists(image)) {
        images.push_back(image);
    }
    return images;
}

// A child process starts with no module, as PKCS#11 wants: it calls
// C_Initialize anew. The parent's module is left to the parent, never
// destroyed in the child: its helper threads do not exist there, and its card
// connections and transactions are the parent's. Forking waits for a call in
// progress, so the child never inherits the lock held.
void followForks() {
    static std::once_flag registered;
    std::call_once(registered, [] {
        ::pthread_atfork([] { Module::mutex().lock(); }, [] { Module::mutex().unlock(); },
                         [] {
                             Module::mutex().unlock();
                             static_cast<void>(instance.release());
                         });
    });
}

bool readersWanted() {
    const char* pcsc = std::getenv("P15KIT_PKCS11_PCSC");
    return !pcsc || std::string(pcsc) != "off";
}

} // namespace

Module::Module()
    : loader_(std::make_unique<host::PluginLoader>(pluginPath(), configuration_)) {
    for (const std::string& image : cardImages()) {
        slots_.push_back(std::make_unique<Slot>(slots_.size(), CardLocation{image, {}}, nullptr));
    }
    addReaders();
}

Module::~Module() = default;

std::mutex& Module::mutex() {
    static std::mutex lock;
    return lock;
}

Module& Module::current() {
    if (!instance) {
        throw Failure(CKR_CRYPTOKI_NOT_INITIALIZED);
    }
    return *instance;
}

void Module::initialize() {
    followForks();
    if (instance) {
        throw Failure(CKR_CRYPTOKI_ALREADY_INITIALIZED);
    }
    instance = std::make_unique<Module>();
}

void Module::finalize() {
    current();
    instance.reset();
}

void Module::addReaders() {
    if (!readersWanted()) {
        return;
    }
    try {
        if (!pcsc_) {
            pcsc_ = std::make_shared<host::PcscContext>();
        }
        for (const std::string& reader : pcsc_->listReaders()) {
            const bool known = std::any_of(slots_.begin(), slots_.end(), [&](const auto& slot) {
                return slot->location().reader == reader;
            });
            if (!known) {
                slots_.push_back(
                    std::make_unique<Slot>(slots_.size(), CardLocation{{}, reader}, pcsc_));
            }
        }
    } catch (const std::exception& error) {
        // No pcscd, or it went away: the readers' slots stay and show no
        // card; a new context is tried next time.
        traceFailure("listing PC/SC readers", error);
        pcsc_.reset();
    }
}

std::vector<CK_SLOT_ID> Module::slotIds(bool withTokenOnly) {
    addReaders();
    std::vector<CK_SLOT_ID> ids;
    for (const auto& slot : slots_) {
        if (!withTokenOnly || slot->cardPresent()) {
            ids.push_back(slot->id());
        }
    }
    return ids;
}

Slot& Module::slot(CK_SLOT_ID id) {
    if (id >= slots_.size()) {
        throw Failure(CKR_SLOT_ID_INVALID);
    }
    return *slots_[id];
}

Token& Module::token(CK_SLOT_ID id) {
    Slot& place = slot(id);
    if (place.hasToken() && !place.cardPresent()) {
        cardGone(id);
        throw Failure(CKR_DEVICE_REMOVED, "the card left its slot");
    }
    Token& found = place.token(*loader_);
    found.followReset();
    return found;
}

CK_SESSION_HANDLE Module::openSession(CK_SLOT_ID id, CK_FLAGS flags) {
    if (!(flags & CKF_SERIAL_SESSION)) {
        throw Failure(CKR_SESSION_PARALLEL_NOT_SUPPORTED);
    }
    Token& opened = token(id);
    if (!(flags & CKF_RW_SESSION) && opened.loggedIn() == CKU_SO) {
        throw Failure(CKR_SESSION_READ_WRITE_SO_EXISTS);
    }
    const CK_SESSION_HANDLE handle = nextSession_++;
    Session& opened_ = sessions_[handle];
    opened_.handle = handle;
    opened_.slot = id;
    opened_.flags = flags;
    return handle;
}

Session& Module::session(CK_SESSION_HANDLE handle) {
    const auto found = sessions_.find(handle);
    if (found == sessions_.end()) {
        throw Failure(CKR_SESSION_HANDLE_INVALID);
    }
    return found->second;
}

void Module::closeSession(CK_SESSION_HANDLE handle) {
    const CK_SLOT_ID id = session(handle).slot;
    sessions_.erase(handle);
    if (sessionCounts(id).all == 0) {
        // The last session closed logs the user out; the card is released.
        slot(id).disconnect();
    }
}

void Module::closeAllSessions(CK_SLOT_ID id) {
    slot(id);
    for (auto it = sessions_.begin(); it != sessions_.end();) {
        it = it->second.slot == id ? sessions_.erase(it) : std::next(it);
    }
    slot(id).disconnect();
}

void Module::cardGone(CK_SLOT_ID id) {
    closeAllSessions(id);
}

SessionCounts Module::sessionCounts(CK_SLOT_ID id) const {
    SessionCounts counts;
    for (const auto& [handle, session] : sessions_) {
        if (session.slot == id) {
            ++counts.all;
            counts.readWrite += session.readWrite() ? 1 : 0;
        }
    }
    return counts;
}

CK_STATE Module::state(const Session& session) {
    const Slot& place = slot(session.slot);
    const std::optional<CK_USER_TYPE> user =
        place.hasToken() ? token(session.slot).loggedIn() : std::nullopt;
    if (user == CKU_SO) {
        return CKS_RW_SO_FUNCTIONS;
    }
    if (user == CKU_USER) {
        return session.readWrite() ? CKS_RW_USER_FUNCTIONS : CKS_RO_USER_FUNCTIONS;
    }
    return session.readWrite() ? CKS_RW_PUBLIC_SESSION : CKS_RO_PUBLIC_SESSION;
}

std::optional<CK_SLOT_ID> Module::takeEvent() {
    addReaders();
    for (const auto& slot : slots_) {
        if (slot->takeEvent()) {
            return slot->id();
        }
    }
    return std::nullopt;
}

} // namespace pkcs11
