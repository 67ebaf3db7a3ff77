// The application as the host's object repository.
#include "app/pkcs15/P15Application.hpp"

#include "app/ApplicationException.hpp"
#include "app/pkcs15/fs/AODF.hpp"
#include "app/pkcs15/fs/CDF.hpp"
#include "app/pkcs15/fs/DODF.hpp"
#include "app/pkcs15/fs/ODF.hpp"
#include "app/pkcs15/fs/PrKDF.hpp"
#include "app/pkcs15/fs/PuKDF.hpp"
#include "app/pkcs15/fs/TokenInfo.hpp"
#include "app/pkcs15/object/P15ApplicationInfo.hpp"
#include "app/pkcs15/object/P15DataObject.hpp"
#include "app/pkcs15/object/P15Pin.hpp"
#include "app/pkcs15/object/P15RsaPrivateKey.hpp"
#include "app/pkcs15/object/P15RsaPublicKey.hpp"
#include "app/pkcs15/object/P15X509Certificate.hpp"
#include "mw/Log.hpp"

#include <boost/current_function.hpp>

namespace app {
namespace pkcs15 {

using object::AbstractP15Object;

namespace {

constexpr const char* notP15Object = "failed to cast to AbstractP15Object";

} // namespace

void P15Application::readCardObject(const card::IChannel& channel,
                                    app::object::ICardObject& object) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    auto* p15 = dynamic_cast<AbstractP15Object*>(&object);
    if (p15 == nullptr) {
        APP_THROW(ApplicationException, notP15Object);
    }
    p15->read(channel, *this);
}

void P15Application::writeCardObject(const card::IChannel& channel,
                                     const app::object::ICardObject& object) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    const auto* p15 = dynamic_cast<const AbstractP15Object*>(&object);
    if (p15 == nullptr) {
        APP_THROW(ApplicationException, notP15Object);
    }
    p15->write(channel, *this);
}

void P15Application::deleteCardObject(const card::IChannel& channel,
                                      const app::object::ICardObject& object) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    const auto* p15 = dynamic_cast<const AbstractP15Object*>(&object);
    if (p15 == nullptr) {
        APP_THROW(ApplicationException, notP15Object);
    }
    p15->remove(channel, *this);
}

P15Application::List<app::object::IAuthenticationObject>
P15Application::getAuthObjects(const card::IChannel& channel) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    const auto& pins = getODF()->getAODF()->pins(channel);
    return {pins.begin(), pins.end()};
}

P15Application::List<app::object::IPrivateKey>
P15Application::getPrivateKeys(const card::IChannel& channel) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    const auto& keys = getODF()->getPrKDF()->privateKeys(channel);
    return {keys.begin(), keys.end()};
}

P15Application::List<app::object::IPublicKey>
P15Application::getPublicKeys(const card::IChannel& channel) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    const auto& keys = getODF()->getPuKDF()->publicKeys(channel);
    return {keys.begin(), keys.end()};
}

P15Application::List<app::object::ICertificate>
P15Application::getCertificates(const card::IChannel& channel) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    const auto& certificates = getODF()->getCDF()->certificates(channel);
    return {certificates.begin(), certificates.end()};
}

P15Application::List<app::object::IDataObject>
P15Application::getDataObjects(const card::IChannel& channel) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    const auto& dataObjects = getODF()->getDODF()->dataObjects(channel);
    return {dataObjects.begin(), dataObjects.end()};
}

namespace {

// The notes of `file` once `list` made its objects.
template <class File, class List>
void collectNotes(const boost::shared_ptr<File>& file, List list, const card::IChannel& channel,
                  std::vector<app::object::IListingNotes::Note>& notes) {
    ((*file).*list)(channel);
    for (const fs::P15File::EntryNote& note : file->notes(channel)) {
        notes.push_back({file->name(), note.offset, note.reason});
    }
}

} // namespace

std::vector<app::object::IListingNotes::Note>
P15Application::getListingNotes(const card::IChannel& channel) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    const boost::shared_ptr<fs::ODF>& odf = getODF();
    std::vector<Note> notes;
    collectNotes(odf->getAODF(), &fs::AODF::pins, channel, notes);
    collectNotes(odf->getPrKDF(), &fs::PrKDF::privateKeys, channel, notes);
    collectNotes(odf->getPuKDF(), &fs::PuKDF::publicKeys, channel, notes);
    collectNotes(odf->getCDF(), &fs::CDF::certificates, channel, notes);
    collectNotes(odf->getDODF(), &fs::DODF::dataObjects, channel, notes);
    return notes;
}

boost::shared_ptr<app::object::IApplicationInfo>
P15Application::getApplicationInfo(const card::IChannel& channel) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    return getODF()->getTokenInfo()->applicationInfo(channel);
}

P15Application::List<app::object::ISecretKey>
P15Application::getSecretKeys(const card::IChannel& /*channel*/) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    APP_THROW(OperationNotSupportedException, "getSecretKeys not supported");
}

} // namespace pkcs15
} // namespace app
