#include "app/pkcs15/P15Application.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/detail/WallClock.hpp"
#include "app/pkcs15/detail/Wipe.hpp"
#include "app/pkcs15/detail/util.hpp"
#include "app/pkcs15/fs/AODF.hpp"
#include "app/pkcs15/fs/CDF.hpp"
#include "app/pkcs15/fs/DODF.hpp"
#include "app/pkcs15/fs/ODF.hpp"
#include "app/pkcs15/fs/PrKDF.hpp"
#include "app/pkcs15/fs/PuKDF.hpp"
#include "card/CardException.hpp"
#include "card/IApplet.hpp"
#include "card/ICard.hpp"
#include "card/service/IAsymmetricKeyManagementService.hpp"
#include "card/service/ICryptographyService.hpp"
#include "card/service/IFileAccessService.hpp"
#include "card/service/IFileSystemService.hpp"
#include "card/service/IPinManagementService.hpp"
#include "mw/Log.hpp"

#include <algorithm>
#include <boost/current_function.hpp>
#include <boost/make_shared.hpp>
#include <boost/property_tree/ini_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#include <iterator>
#include <sstream>

namespace app {
namespace pkcs15 {

using card::service::KeyRef;
using fs::AppObjectType;

namespace {

// A000000063 followed by "PKCS-15".
const unsigned char pkcs15Aid[] = {0xA0, 0x00, 0x00, 0x00, 0x63, 0x50,
                                   0x4B, 0x43, 0x53, 0x2D, 0x31, 0x35};

template <typename Service>
void bindService(const card::IBaseInterface& base, const char* name, const char* missingText,
                 boost::shared_ptr<Service>& slot) {
    if (base.hasInterface(name)) {
        slot = boost::dynamic_pointer_cast<Service>(base.getInterface(name));
    }
    if (!slot) {
        APP_THROW(ApplicationException, missingText);
    }
}

bool isKeyType(AppObjectType type) {
    return type >= fs::RsaPrivateKey1024 && type <= fs::RsaPublicKey2048;
}

unsigned short modulusBitsOf(AppObjectType type) {
    switch (type) {
    case fs::RsaPrivateKey1024:
    case fs::RsaPublicKey1024:
        return 1024;
    case fs::RsaPrivateKey1536:
    case fs::RsaPublicKey1536:
        return 1536;
    default:
        return 2048;
    }
}

} // namespace

P15Application::P15Application(const boost::shared_ptr<const card::IApplet>& applet,
                               const std::string& label, const std::string& configuration)
    : P15Application(nullptr, applet, label, configuration) {}

P15Application::P15Application(const boost::shared_ptr<const card::ICard>& card,
                               const std::string& label, const std::string& configuration)
    : P15Application(card, nullptr, label, configuration) {}

P15Application::P15Application(const boost::shared_ptr<const card::ICard>& card,
                               const boost::shared_ptr<const card::IApplet>& applet,
                               const std::string& label, const std::string& configuration)
    : card_(card)
    , applet_(applet)
    , aid_(pkcs15Aid, sizeof pkcs15Aid)
    , label_(label)
    , configuration_(configuration)
    , appletMode_(applet != nullptr) {
    if (appletMode_) {
        initServices(applet_);
    } else {
        initServices(card_);
    }
    fillFileIdRanges();
    fillKeyIdRanges();
    fillFileDescriptors();
    fillAlgorithmTable();
    readConfiguration();
}

P15Application::~P15Application() = default;

void P15Application::initServices(const boost::shared_ptr<const card::IBaseInterface>& base) {
    if (!base) {
        APP_THROW(ApplicationException, "required interface not found: PinManagementService");
    }
    bindService(*base, "PinManagementService", "required interface not found: PinManagementService",
                pinManagementService_);
    bindService(*base, "FileAccessService", "required interface not found: FileAccessService",
                fileAccessService_);
    bindService(*base, "FileSystemService", "required interface not found: FileSystemService",
                fileSystemService_);
    bindService(*base, "CryptographyService", "required interface not found: CryptographyService",
                cryptographyService_);
    bindService(*base, "AsymmetricKeyManagementService",
                "required interface not found: AsymmetricKeyManagementService",
                asymmetricKeyManagementService_);
}

void P15Application::fillFileIdRanges() {
    if (appletMode_) {
        fileIdRanges_ = {{fs::DataObjectFile, {0x0D81, 0x0DFF}},
                         {fs::ProtectedValueFile, {0x0D01, 0x0D80}},
                         {fs::CertificateFile, {0xC001, 0xC03F}}};
        return;
    }
    // Value files without access rules live in DF 02; protected ones beside
    // the directory files.
    fileIdRanges_ = {
        {fs::DataObjectFile, {0xDF020D81, 0xDF020DFF}},  {fs::ProtectedValueFile, {0x0D01, 0x0D80}},
        {fs::CertificateFile, {0xDF02C001, 0xDF02C03F}}, {fs::RsaPrivateKey1024, {0x0E01, 0x0E06}},
        {fs::RsaPublicKey1024, {0x0F01, 0x0F06}},        {fs::RsaPrivateKey1536, {0x0E07, 0x0E0C}},
        {fs::RsaPublicKey1536, {0x0F07, 0x0F0C}},        {fs::RsaPrivateKey2048, {0x0E0D, 0x0E12}},
        {fs::RsaPublicKey2048, {0x0F0D, 0x0F12}}};
}

void P15Application::fillKeyIdRanges() {
    const auto range = [this](IdRange card, IdRange applet) { return appletMode_ ? applet : card; };
    keyIdRanges_ = {{fs::RsaPrivateKey1024, range({1, 6}, {0, 31})},
                    {fs::RsaPublicKey1024, range({1, 6}, {0, 31})},
                    {fs::RsaPrivateKey1536, range({7, 12}, {0, 31})},
                    {fs::RsaPublicKey1536, range({7, 12}, {0, 31})},
                    {fs::RsaPrivateKey2048, range({13, 18}, {0, 31})},
                    {fs::RsaPublicKey2048, range({13, 18}, {0, 31})}};
}

void P15Application::fillFileDescriptors() {
    // Transparent EF for value files, RSA private and public key files.
    const unsigned char transparent = 0x01, privateKey = 0x11, publicKey = 0x12;
    fileDescriptors_ = {{fs::DataObjectFile, transparent},  {fs::ProtectedValueFile, transparent},
                        {fs::CertificateFile, transparent}, {fs::RsaPrivateKey1024, privateKey},
                        {fs::RsaPublicKey1024, publicKey},  {fs::RsaPrivateKey1536, privateKey},
                        {fs::RsaPublicKey1536, publicKey},  {fs::RsaPrivateKey2048, privateKey},
                        {fs::RsaPublicKey2048, publicKey}};
}

void P15Application::fillAlgorithmTable() {
    algorithmTable_[1] = {
        {"1.2.840.113549.1.1.1", "", ""},
        {"1.2.840.113549.1.1.5", "1.3.14.3.2.26", "2B0E03021A"},
        {"1.2.840.113549.1.1.14", "2.16.840.1.101.3.4.2.4", "608648016503040204"},
        {"1.2.840.113549.1.1.11", "2.16.840.1.101.3.4.2.1", "608648016503040201"},
        {"1.2.840.113549.1.1.12", "2.16.840.1.101.3.4.2.2", "608648016503040202"},
        {"1.2.840.113549.1.1.13", "2.16.840.1.101.3.4.2.3", "608648016503040203"},
        {"1.3.36.3.3.1.3", "1.3.36.3.2.2", "2B24030202"},
        {"1.3.36.3.3.1.2", "1.3.36.3.2.1", "2B24030201"},
        {"1.2.840.113549.1.1.2", "1.2.840.113549.2.2", "2A864886F70D0202"},
        {"1.2.840.113549.1.1.4", "1.2.840.113549.2.5", "2A864886F70D0205"},
    };
    algorithmTable_[2] = {{"1.2.840.113549.1.1.1", "", ""}};
}

// An empty text keeps the defaults. A text that is there must say whether
// wiping is forced: a missing "Objects.wipeForce" fails on purpose, while
// missing or non-numeric waiting times fall back to 0.
void P15Application::readConfiguration() {
    if (configuration_.empty()) {
        return;
    }
    boost::property_tree::ptree tree;
    std::istringstream text(configuration_);
    boost::property_tree::ini_parser::read_ini(text, tree);
    reselectWaitingTime_ = tree.get_optional<std::int32_t>("WaitingTime.Reselect").value_or(0);
    pinInfoWaitingTime_ = tree.get_optional<std::int32_t>("WaitingTime.PinInfo").value_or(0);
    wipeForce_ = tree.get<std::string>("Objects.wipeForce") == "true";
}

const AlgorithmRows& P15Application::getAlgorithmRows(unsigned int key) const {
    static const AlgorithmRows none;
    const auto found = algorithmTable_.find(key);
    return found == algorithmTable_.end() ? none : found->second;
}

unsigned char P15Application::getFileDescriptor(AppObjectType type) const {
    const auto found = fileDescriptors_.find(type);
    if (found == fileDescriptors_.end()) {
        APP_THROW(ApplicationException, "File id range for requested object type not found");
    }
    return found->second;
}

void P15Application::clearCache() {
    odf_.reset();
}

P15Application::ChannelScope::ChannelScope(const P15Application& application,
                                           const card::IChannel& channel)
    : application_(application)
    , previous_(application.boundChannel_) {
    application_.boundChannel_ = &channel;
}

P15Application::ChannelScope::~ChannelScope() {
    application_.boundChannel_ = previous_;
}

const card::IChannel& P15Application::boundChannel() const {
    if (!boundChannel_) {
        APP_THROW(ApplicationException,
                  "no card channel: call this inside an operation that is given one");
    }
    return *boundChannel_;
}

// The host calls select before every operation; with a positive waiting
// time the card is spared a SELECT until that many milliseconds passed.
void P15Application::select(const card::IChannel& channel) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    if (lastSelection_ == 0) {
        selectOnCard(channel);
        if (reselectWaitingTime_ > 0) {
            log.addParamOut("WT: ", std::to_string(reselectWaitingTime_));
            lastSelection_ = detail::WallClock::nowMillis();
        }
        return;
    }
    if (reselectWaitingTime_ >= 1 && lastSelection_ >= 1) {
        const std::int64_t now = detail::WallClock::nowMillis();
        if (now - lastSelection_ > reselectWaitingTime_) {
            selectOnCard(channel);
            lastSelection_ = now;
        }
    }
}

void P15Application::selectOnCard(const card::IChannel& channel) const {
    if (appletMode_) {
        applet_->select(channel);
    } else {
        card_->selectApplication(channel, aid_);
    }
}

const boost::shared_ptr<fs::ODF>& P15Application::getODF() const {
    if (!odf_) {
        odf_ =
            boost::make_shared<fs::ODF>(boost::weak_ptr<const P15Application>(shared_from_this()));
    }
    return odf_;
}

P15Application::IdRange P15Application::getFileIdRange(AppObjectType type) const {
    const auto found = fileIdRanges_.find(type);
    if (found == fileIdRanges_.end()) {
        APP_THROW(ApplicationException, "File id range for requested object type not found");
    }
    return found->second;
}

P15Application::IdRange P15Application::getKeyIdRange(AppObjectType type) const {
    const auto found = keyIdRanges_.find(type);
    if (found == keyIdRanges_.end()) {
        APP_THROW(ApplicationException, "Key id range for requested object type not found");
    }
    return found->second;
}

// Key ids are counted in one byte.
P15Application::IdRange P15Application::byteKeyIdRange(AppObjectType type) const {
    const IdRange range = getKeyIdRange(type);
    if (range.first >= 256 || range.second >= 256) {
        APP_THROW(ApplicationException, "invalid key id size");
    }
    return range;
}

mw::ByteBuffer P15Application::getFreeFileId(AppObjectType type) const {
    const IdRange range = getFileIdRange(type);
    if (range.second < range.first) {
        APP_THROW(ApplicationException, "invalid argument: lower bound > upper bound");
    }
    const std::vector<mw::ByteBuffer> named = namedFiles(boundChannel());
    for (std::uint64_t candidate = range.first; candidate <= range.second; ++candidate) {
        mw::ByteBuffer bytes = util::idToBytes(static_cast<unsigned int>(candidate));
        if (!isNamed(named, bytes)) {
            return bytes;
        }
    }
    APP_THROW(ApplicationException, "unable to find free file id");
}

bool P15Application::keyReferenceInUse(const card::IChannel& channel, AppObjectType type,
                                       unsigned char reference) const {
    const std::vector<KeyRef> used = (type % 2) == 1 ? getODF()->getPrKDF()->keyRefs(channel)
                                                     : getODF()->getPuKDF()->keyRefs(channel);
    return std::any_of(used.begin(), used.end(),
                       [reference](const KeyRef& key) { return key.keyReference == reference; });
}

// A key file that an entry names, or that is left on the card without one
// (say, by an interrupted key generation), still occupies its key id.
bool P15Application::keyFilesTaken(const card::IChannel& channel, const KeyRef& privateKey,
                                   const KeyRef& publicKey) const {
    const std::vector<mw::ByteBuffer> named = namedFiles(channel);
    if (isNamed(named, privateKey.fileId) || isNamed(named, publicKey.fileId)) {
        return true;
    }
    for (const KeyRef* key : {&privateKey, &publicKey}) {
        try {
            fileAccessService_->select(channel, key->fileId);
            return true;
        } catch (const card::CardException& e) {
            if (!util::isFileNotFound(e)) {
                throw;
            }
        }
    }
    return false;
}

// Key id `kid` of `type` named by its reference alone, as the card layer
// accepts it where the application names no key files.
KeyRef P15Application::keyByReference(AppObjectType type, unsigned char kid) const {
    KeyRef ref;
    ref.keyReference = util::encodeKID(kid, (type % 2) == 1);
    ref.modulusBits = modulusBitsOf(type);
    ref.flag = false;
    return ref;
}

// The key file of key id `kid`: the high byte of the type's file-id range
// with the kid as low byte (0E01 for the first 1024-bit private key).
KeyRef P15Application::makeKeyRef(AppObjectType type, unsigned char kid) const {
    KeyRef ref = keyByReference(type, kid);
    const unsigned char fileHigh = static_cast<unsigned char>(getFileIdRange(type).first >> 8);
    ref.fileId = mw::ByteBuffer{fileHigh, static_cast<unsigned char>(kid & 0x1F)};
    return ref;
}

// The first key id of `type`'s range that its key directory does not use.
// The card keeps both halves of a key pair under one reference: for a
// `wholePair` neither key directory may use it, and neither key file may be
// named or on the card. A public key alone joins the first private key its
// directory does not list yet.
boost::optional<unsigned char> P15Application::freeKeyId(const card::IChannel& channel,
                                                         AppObjectType type, bool wholePair) const {
    const auto privateType = static_cast<AppObjectType>(type % 2 == 1 ? type : type - 1);
    const auto publicType = static_cast<AppObjectType>(privateType + 1);
    const IdRange range = byteKeyIdRange(type);
    for (unsigned int id = range.first; id <= range.second; ++id) {
        const auto kid = static_cast<unsigned char>(id);
        const unsigned char reference = util::encodeKID(kid, true);
        if (keyReferenceInUse(channel, type, reference)) {
            continue;
        }
        if (!wholePair ||
            (!keyReferenceInUse(channel, type == privateType ? publicType : privateType,
                                reference) &&
             !keyFilesTaken(channel, makeKeyRef(privateType, kid), makeKeyRef(publicType, kid)))) {
            return kid;
        }
    }
    return boost::none;
}

KeyRef P15Application::getFreeKeyReference(AppObjectType type) const {
    if (!isKeyType(type)) {
        APP_THROW(ApplicationException, "unable to get key reference for non-key type");
    }
    const boost::optional<unsigned char> kid = freeKeyId(boundChannel(), type, type % 2 == 1);
    if (!kid) {
        APP_THROW(ApplicationException, "unable to find free key reference");
    }
    return makeKeyRef(type, *kid);
}

std::pair<KeyRef, KeyRef>
P15Application::getFreeKeyPairReference(const card::IChannel& channel,
                                        unsigned short modulusBits) const {
    AppObjectType privateType;
    switch (modulusBits) {
    case 1024:
        privateType = fs::RsaPrivateKey1024;
        break;
    case 1536:
        privateType = fs::RsaPrivateKey1536;
        break;
    case 2048:
        privateType = fs::RsaPrivateKey2048;
        break;
    default:
        APP_THROW_DATA(ApplicationException, "invalid modulus size", modulusBits);
    }
    const boost::optional<unsigned char> kid = freeKeyId(channel, privateType, true);
    if (!kid) {
        APP_THROW(ApplicationException, "maximum number of key pairs reached");
    }
    return {makeKeyRef(privateType, *kid),
            makeKeyRef(static_cast<AppObjectType>(privateType + 1), *kid)};
}

void P15Application::wipe(const card::IChannel& channel) {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    try {
        detail::Wipe(*this, channel).run(wipeForce_);
    } catch (...) {
        odf_.reset();
        throw;
    }
    odf_.reset();
}

} // namespace pkcs15
} // namespace app
