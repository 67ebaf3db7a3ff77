#ifndef APP_PKCS15_P15APPLICATION_HPP
#define APP_PKCS15_P15APPLICATION_HPP

#include "app/IApplication.hpp"
#include "app/object/ICardObjectFactory.hpp"
#include "app/object/ICardObjectRepository.hpp"
#include "app/object/IListingNotes.hpp"
#include "app/pkcs15/fs/AppObjectType.hpp"
#include "app/pkcs15/impl/EngineKeys.hpp"
#include "app/pkcs15/oss/Asn1Types.hpp"
#include "card/service/KeyRef.hpp"
#include "mw/ByteBuffer.hpp"

#include <boost/enable_shared_from_this.hpp>
#include <boost/optional.hpp>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace card {
class IApplet;
class IBaseInterface;
class ICard;
class IChannel;
namespace service {
class IAsymmetricKeyManagementService;
class ICryptographyService;
class IFileAccessService;
class IFileSystemService;
class IPinManagementService;
} // namespace service
} // namespace card

namespace app {
namespace pkcs15 {

namespace fs {
class EntryLayout;
class ODF;
class P15File;
} // namespace fs

namespace detail {
class Wipe;
}

// One PKCS#15 application on one card: binds the card services, selects the
// application, reads and caches its directory structure on first use, and
// allocates file identifiers and key references for new objects. It is also
// the host's repository and factory of objects.
class P15Application : public IApplication,
                       public app::object::ICardObjectRepository,
                       public app::object::ICardObjectFactory,
                       public app::object::IListingNotes,
                       public boost::enable_shared_from_this<P15Application> {
public:
    using IdRange = std::pair<unsigned int, unsigned int>;

    // Lends `channel` to the application for as long as this object lives,
    // for the operations that take no channel of their own (getFreeFileId,
    // getFreeKeyReference, updateEncodedAttributes). Whatever is given a
    // channel and may reach them opens one on the stack; when it ends,
    // exceptions included, the binding before it is back. The application
    // must outlive it.
    class ChannelScope {
    public:
        ChannelScope(const P15Application& application, const card::IChannel& channel);
        ~ChannelScope();
        ChannelScope(const ChannelScope&) = delete;
        ChannelScope& operator=(const ChannelScope&) = delete;

    private:
        const P15Application& application_;
        const card::IChannel* previous_;
    };

    P15Application(const boost::shared_ptr<const card::IApplet>& applet, const std::string& label,
                   const std::string& configuration);
    P15Application(const boost::shared_ptr<const card::ICard>& card, const std::string& label,
                   const std::string& configuration);
    ~P15Application() override;

    const std::string& getLabel() const override { return label_; }
    void clearCache() override;
    const mw::ByteBuffer& getAid() const override { return aid_; }
    void select(const card::IChannel& channel) const override;
    // Removes the listed objects (all of the allocation ranges when wiping is
    // forced) and forgets the cached structure; an object it must or could
    // not leave makes it fail at the end with "wipe left objects on the card"
    // (ErrorData: how many, ErrorDetail: which and why). See detail::Wipe.
    void wipe(const card::IChannel& channel) override;
    void onCardReset() override {}
    void onTransactionBegin() override {}
    void onTransactionEnd() override {}
    const AlgorithmRows& getAlgorithmRows(unsigned int key) const override;

    // Engines (P15ApplicationAlgorithms.cpp), chosen from the card's
    // algorithm list and the algorithm table.
    boost::shared_ptr<crypto::IMessageDigest>
    getMessageDigest(const std::string& oid) const override;
    boost::shared_ptr<crypto::ISignature> getSignature(const std::string& oid) const override;
    boost::shared_ptr<crypto::ICipher> getCipher(const std::string& oid) const override;
    boost::shared_ptr<crypto::IRandom> getRandom() const override;
    boost::shared_ptr<crypto::IKeyPairGenerator>
    getKeyPairGenerator(const std::string& oid) const override;

    bool isAppletMode() const { return appletMode_; }
    std::int32_t getReselectWaitingTime() const { return reselectWaitingTime_; }
    std::int32_t getPinInfoWaitingTime() const { return pinInfoWaitingTime_; }
    bool isWipeForced() const { return wipeForce_; }
    // The FCP file descriptor byte of files holding objects of `type`.
    unsigned char getFileDescriptor(fs::AppObjectType type) const;

    const boost::shared_ptr<card::service::IFileAccessService>& getFileAccessService() const {
        return fileAccessService_;
    }
    const boost::shared_ptr<card::service::IFileSystemService>& getFileSystemService() const {
        return fileSystemService_;
    }
    const boost::shared_ptr<card::service::IPinManagementService>& getPinManagementService() const {
        return pinManagementService_;
    }
    const boost::shared_ptr<card::service::IAsymmetricKeyManagementService>&
    getAsymmetricKeyManagementService() const {
        return asymmetricKeyManagementService_;
    }
    const boost::shared_ptr<card::service::ICryptographyService>& getCryptographyService() const {
        return cryptographyService_;
    }

    // The object directory, created on first need.
    const boost::shared_ptr<fs::ODF>& getODF() const;

    // Repository (P15ApplicationRepository.cpp). The lists are in file
    // order, read on first need.
    void readCardObject(const card::IChannel& channel,
                        app::object::ICardObject& object) const override;
    void writeCardObject(const card::IChannel& channel,
                         const app::object::ICardObject& object) const override;
    void deleteCardObject(const card::IChannel& channel,
                          const app::object::ICardObject& object) const override;
    List<app::object::IAuthenticationObject>
    getAuthObjects(const card::IChannel& channel) const override;
    List<app::object::IPrivateKey> getPrivateKeys(const card::IChannel& channel) const override;
    List<app::object::IPublicKey> getPublicKeys(const card::IChannel& channel) const override;
    List<app::object::ICertificate> getCertificates(const card::IChannel& channel) const override;
    List<app::object::IDataObject> getDataObjects(const card::IChannel& channel) const override;
    boost::shared_ptr<app::object::IApplicationInfo>
    getApplicationInfo(const card::IChannel& channel) const override;
    List<app::object::ISecretKey> getSecretKeys(const card::IChannel& channel) const override;
    // IListingNotes: lists every kind first, so that each entry left out has its note.
    std::vector<Note> getListingNotes(const card::IChannel& channel) const override;

    // Factory (P15ApplicationFactory.cpp).
    boost::shared_ptr<app::object::ICertificate>
    createCertificate(app::object::ICertificate::CertificateType type,
                      const AccessControlRules& rules) const override;
    boost::shared_ptr<app::object::IPublicKey>
    createPublicKey(app::object::IPublicKey::PublicKeyType type,
                    const AccessControlRules& rules) const override;
    boost::shared_ptr<app::object::IPrivateKey>
    createPrivateKey(app::object::IPrivateKey::PrivateKeyType type,
                     const AccessControlRules& rules) const override;
    boost::shared_ptr<app::object::ISecretKey>
    createSecretKey(app::object::ISecretKey::SecretKeyType type,
                    const AccessControlRules& rules) const override;
    boost::shared_ptr<app::object::IDataObject>
    createDataObject(app::object::IDataObject::DataObjectType type,
                     const AccessControlRules& rules) const override;

    IdRange getFileIdRange(fs::AppObjectType type) const;
    IdRange getKeyIdRange(fs::AppObjectType type) const;
    mw::ByteBuffer getFreeFileId(fs::AppObjectType type) const;
    card::service::KeyRef getFreeKeyReference(fs::AppObjectType type) const;
    // References for the private and the public key of a new key pair.
    std::pair<card::service::KeyRef, card::service::KeyRef>
    getFreeKeyPairReference(const card::IChannel& channel, unsigned short modulusBits) const;

    // What the directories name (P15ApplicationFileUse.cpp). Every file any
    // entry of any directory file names, whatever its kind and path form,
    // and the directory files of EF(ODF): paths as written.
    std::vector<mw::ByteBuffer> namedFiles(const card::IChannel& channel) const;
    // Whether one of `named` designates `file`, a path below the application DF.
    static bool isNamed(const std::vector<mw::ByteBuffer>& named, const mw::ByteBuffer& file);
    // The directory files: AODF, PrKDF, PuKDF, CDF, DODF.
    std::vector<const fs::P15File*> directoryFiles() const;
    // How many entries of the directory files name `file`.
    std::size_t entriesNaming(const card::IChannel& channel, const mw::ByteBuffer& file) const;
    // Why the application may not delete the key files of the listed `key`
    // (a private key when `privateKey`): it does not allocate them for that
    // reference and path. Null when it does; `key` is then the application's
    // own reference to its key file, as the card layer is to be given it.
    const char* keyFilesRefusal(card::service::KeyRef& key, bool privateKey) const;
    // Whether a remaining PrKDF or PuKDF entry names the key file of `key`
    // (the application's own reference to it): by the file's path, or by the
    // key reference, which a private key entry holds for both halves of its
    // key pair and a public key entry for the public half.
    bool keyFileNamed(const card::IChannel& channel, const card::service::KeyRef& key,
                      bool privateKey) const;

    // Replaces the entry `oldEncoding` of a directory file by `newEncoding`
    // (an empty old encoding appends) and writes the change to the card.
    // Returns the file's new content.
    mw::ByteBuffer updateEncodedAttributes(const fs::P15File* file,
                                           const mw::ByteBuffer& oldEncoding,
                                           const mw::ByteBuffer& newEncoding) const;
    // Drops the cached content of a directory file.
    void clearContent(const fs::P15File* file) const;

    // The channel of the innermost open ChannelScope; an application
    // exception when none is open.
    const card::IChannel& boundChannel() const;

private:
    friend class detail::Wipe;

    P15Application(const boost::shared_ptr<const card::ICard>& card,
                   const boost::shared_ptr<const card::IApplet>& applet, const std::string& label,
                   const std::string& configuration);

    void initServices(const boost::shared_ptr<const card::IBaseInterface>& base);
    void fillFileIdRanges();
    void fillKeyIdRanges();
    void fillFileDescriptors();
    void fillAlgorithmTable();
    void readConfiguration();
    // The algorithms the card (or the applet) lists as its own (read once
    // per card session by the card layer).
    std::vector<std::string> listedAlgorithms() const;
    // The algorithms the card performs on its own: those it lists, or
    // rsaEncryption for a card that lists none.
    std::vector<std::string> cardAlgorithms() const;
    // Where the engines take a key's card algorithm reference from: nowhere
    // for a card that lists its algorithms (the card layer knows their
    // references), else the application's TokenInfo and key entries.
    impl::AlgorithmReferenceLookup algorithmReferences(bool decipher) const;
    void selectOnCard(const card::IChannel& channel) const;
    IdRange byteKeyIdRange(fs::AppObjectType type) const;
    bool keyReferenceInUse(const card::IChannel& channel, fs::AppObjectType type,
                           unsigned char reference) const;
    bool keyFilesTaken(const card::IChannel& channel, const card::service::KeyRef& privateKey,
                       const card::service::KeyRef& publicKey) const;
    boost::optional<unsigned char> freeKeyId(const card::IChannel& channel, fs::AppObjectType type,
                                             bool wholePair) const;
    card::service::KeyRef applicationKey(fs::AppObjectType type, unsigned char kid) const;
    card::service::KeyRef keyByReference(fs::AppObjectType type, unsigned char kid) const;
    card::service::KeyRef makeKeyRef(fs::AppObjectType type, unsigned char kid) const;
    // Sends the writes of `layout` to `file`, in their order, and keeps the
    // content they leave as the file's.
    void writeEntries(const card::IChannel& channel, const fs::P15File& file,
                      const fs::EntryLayout& layout) const;

    boost::shared_ptr<const card::ICard> card_;
    boost::shared_ptr<const card::IApplet> applet_;
    mw::ByteBuffer aid_;
    std::string label_;
    std::string configuration_;
    bool appletMode_;
    std::int32_t reselectWaitingTime_ = 0;
    std::int32_t pinInfoWaitingTime_ = 0;
    mutable std::int64_t lastSelection_ = 0;
    boost::shared_ptr<card::service::IFileAccessService> fileAccessService_;
    boost::shared_ptr<card::service::IFileSystemService> fileSystemService_;
    boost::shared_ptr<card::service::IPinManagementService> pinManagementService_;
    boost::shared_ptr<card::service::IAsymmetricKeyManagementService>
        asymmetricKeyManagementService_;
    boost::shared_ptr<card::service::ICryptographyService> cryptographyService_;
    std::map<unsigned int, AlgorithmRows> algorithmTable_;
    std::map<fs::AppObjectType, IdRange> fileIdRanges_;
    std::map<fs::AppObjectType, IdRange> keyIdRanges_;
    std::map<fs::AppObjectType, unsigned char> fileDescriptors_;
    mutable boost::shared_ptr<fs::ODF> odf_;
    bool wipeForce_ = false;
    // Set only by ChannelScope, for the operation that opened it.
    mutable const card::IChannel* boundChannel_ = nullptr;
};

} // namespace pkcs15
} // namespace app

#endif
