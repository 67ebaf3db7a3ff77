#include "app/pkcs15/object/P15ValueObject.hpp"

#include "app/ApplicationException.hpp"
#include "app/object/AbstractDataObject.hpp"
#include "app/object/AbstractX509Certificate.hpp"
#include "app/pkcs15/P15Application.hpp"
#include "app/pkcs15/detail/util.hpp"
#include "app/pkcs15/fs/CDF.hpp"
#include "app/pkcs15/fs/DODF.hpp"
#include "app/pkcs15/fs/ODF.hpp"
#include "app/pkcs15/object/P15RsaKeyEntry.hpp"
#include "card/CardException.hpp"
#include "card/service/IFileAccessService.hpp"
#include "card/service/IFileSystemService.hpp"
#include "mw/Log.hpp"

#include <algorithm>
#include <boost/current_function.hpp>
#include <boost/make_shared.hpp>
#include <limits>

namespace app {
namespace pkcs15 {
namespace object {

namespace {

constexpr std::size_t maxValueSize = 65535;

boost::optional<std::uint16_t> sixteenBits(const boost::optional<oss::Integer>& number) {
    if (!number || *number < 0 || *number > std::numeric_limits<std::uint16_t>::max()) {
        return boost::none;
    }
    return static_cast<std::uint16_t>(*number);
}

boost::optional<oss::Integer> integer(const boost::optional<std::uint16_t>& number) {
    return number ? boost::optional<oss::Integer>(*number) : boost::none;
}

// A new value's file that another entry names: the file is that entry's.
struct FileOfAnotherEntry {};

// Whether an entry besides the new one names `path`, as the card's
// directory files say now: another program may have listed the file since
// they were read.
bool namedByAnotherEntry(const card::IChannel& channel, const P15Application& application,
                         const mw::ByteBuffer& path) {
    for (const fs::P15File* file : application.directoryFiles()) {
        file->clearContent();
    }
    return application.entriesNaming(channel, path) > 1;
}

void deleteIfPresent(const card::IChannel& channel, const P15Application& application,
                     const mw::ByteBuffer& path) {
    try {
        application.getFileSystemService()->deleteFile(channel, path);
    } catch (const card::CardException& e) {
        if (!util::isFileNotFound(e)) {
            throw;
        }
    }
}

// The conditions of a value file: those of the object's rules, and for the
// modes no rule names, none at all. An object without rules is not
// protected (as PKCS#15 gives it), and the card takes a mode that its file
// names no condition for as never allowed: a file no one could read, replace
// or delete.
card::service::AccessConditions
valueFileConditions(const boost::optional<AccessControlRules>& rules) {
    card::service::AccessConditions conditions = cardConditions(rules);
    unsigned short named = 0;
    for (const card::service::AccessCondition& condition : conditions) {
        named |= condition.accessModes;
    }
    const unsigned short unnamed =
        (card::service::AccessRead | card::service::AccessUpdate) & ~named;
    if (unnamed != 0) {
        conditions.push_back(
            {unnamed, boost::make_shared<card::service::AlwaysSecurityCondition>()});
    }
    return conditions;
}

} // namespace

ValueLocation decodeValueLocation(const oss::ObjectValue& value) {
    const oss::Path* path = fs::indirectPath(value);
    if (!path) {
        return {};
    }
    return {mw::ByteBuffer(path->path), sixteenBits(path->index), sixteenBits(path->length)};
}

void storeValueLocation(const ValueLocation& location, oss::ObjectValue& value) {
    if (!fs::indirectPath(value)) {
        value = oss::ObjectValue();
    } else if (decodeValueLocation(value) == location) {
        return;
    }
    oss::Path& path = value.indirectValue.pathValue;
    path.path.assign(location.path.begin(), location.path.end());
    path.index = integer(location.index);
    path.length = integer(location.length);
}

template <class Generic, class File, class Entry>
void P15ValueObject<Generic, File, Entry>::read(const card::IChannel& channel,
                                                const P15Application& application) {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    const app::object::StoredValue& value = this->valueHolder();
    if (value.isKnown() && !value.isModified()) {
        return;
    }
    if (location_.path.empty() || !location_.index || !location_.length) {
        APP_THROW(InvalidDataException, "path, index and length required but not found");
    }
    mw::ByteBuffer bytes;
    if (*location_.length > 0) {
        const card::service::IFileAccessService& files = *application.getFileAccessService();
        files.select(channel, location_.path);
        bytes = files.read(channel, *location_.index, *location_.length);
    }
    value.load(std::move(bytes));
}

template <class Generic, class File, class Entry>
void P15ValueObject<Generic, File, Entry>::write(const card::IChannel& channel,
                                                 const P15Application& application) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    for (;;) {
        try {
            writeOnce(channel, application);
            return;
        } catch (const FileOfAnotherEntry&) {
            // The entry is back as it was; the file allocated next is another.
        }
    }
}

template <class Generic, class File, class Entry>
void P15ValueObject<Generic, File, Entry>::writeOnce(const card::IChannel& channel,
                                                     const P15Application& application) const {
    const app::object::StoredValue& value = this->valueHolder();
    const bool isNew = encoding_.empty();
    if (isNew && !value.isModified()) {
        APP_THROW(ApplicationException, "value required but not found");
    }
    if (!this->isTouched() && !value.isModified()) {
        return;
    }
    if (value.get().size() > maxValueSize) {
        APP_THROW_DATA(InvalidDataException, texts_.valueTooLong, value.get().size());
    }
    const boost::shared_ptr<const File> file = lockFile(file_);
    const P15Application::ChannelScope bound(application, channel);
    ValueLocation location = location_;
    if (isNew) {
        location.path =
            file->getFreeFileId(channel, *application.getFileAccessService(), valueFileType());
    } else if (value.isModified()) {
        if (hasInexpressibleRules()) {
            APP_THROW(OperationNotSupportedException,
                      "the value's file has access rules this application cannot express; it "
                      "cannot be replaced");
        }
        if (application.entriesNaming(channel, location.path) > 1) {
            APP_THROW(OperationNotSupportedException,
                      "the value's file holds other objects too; it cannot be replaced");
        }
    }
    if (value.isModified()) {
        location.index = 0;
        location.length = static_cast<std::uint16_t>(value.get().size());
    }
    const Entry entry = encodeEntry(location);
    const bool entryChanged = !entry_ || !(entry == *entry_);
    mw::ByteBuffer encoding = encoding_;
    if (entryChanged) {
        encoding = encodeKeyEntry(entry, texts_.entryTooLong);
        checkRoom(*file, channel, encoding_, encoding, texts_.outOfMemory);
        file->updateEncodedAttributes(encoding_, encoding);
    }
    if (value.isModified()) {
        try {
            writeValueFile(channel, application, location, !isNew);
        } catch (...) {
            if (entryChanged) {
                try {
                    file->updateEncodedAttributes(encoding, encoding_);
                } catch (...) {
                    // The failure that made the entry go back is the one to report.
                }
            }
            throw;
        }
        value.markWritten();
    }
    encoding_ = std::move(encoding);
    entry_ = entry;
    location_ = std::move(location);
    this->clearTouched();
}

template <class Generic, class File, class Entry>
bool P15ValueObject<Generic, File, Entry>::hasInexpressibleRules() const {
    if (!entry_) {
        return false;
    }
    const auto& read = commonAttributesOf(*entry_).accessControlRules;
    const auto& held = this->getAccessControlRules();
    return read && (!held || held->size() != read->size());
}

// The file is made anew with the value's size: a value may grow. A file
// that could not be filled is not left behind.
template <class Generic, class File, class Entry>
void P15ValueObject<Generic, File, Entry>::writeValueFile(const card::IChannel& channel,
                                                          const P15Application& application,
                                                          const ValueLocation& location,
                                                          bool replace) const {
    const mw::ByteBuffer& value = this->valueHolder().get();
    if (replace) {
        deleteIfPresent(channel, application, location.path);
    }
    const card::service::DataObjectCreateParams params(
        location.path, value.size(), valueFileConditions(this->getAccessControlRules()));
    const card::service::IFileSystemService& fileSystem = *application.getFileSystemService();
    try {
        fileSystem.createFile(channel, params);
    } catch (const card::CardException& e) {
        // A file already there that no other entry names was left unlisted
        // by a write or removal cut short, and is replaced.
        if (replace || !util::isFileAlreadyThere(e)) {
            throw;
        }
        if (namedByAnotherEntry(channel, application, location.path)) {
            throw FileOfAnotherEntry();
        }
        fileSystem.deleteFile(channel, location.path);
        fileSystem.createFile(channel, params);
    }
    if (value.empty()) {
        return;
    }
    try {
        const card::service::IFileAccessService& files = *application.getFileAccessService();
        files.select(channel, location.path);
        files.update(channel, 0, value);
    } catch (...) {
        try {
            deleteIfPresent(channel, application, location.path);
        } catch (...) {
            // The failed write is the one to report.
        }
        throw;
    }
}

template <class Generic, class File, class Entry>
void P15ValueObject<Generic, File, Entry>::remove(const card::IChannel& channel,
                                                  const P15Application& application) const {
    mw::Log log(typeid(*this), BOOST_CURRENT_FUNCTION);
    if (encoding_.empty()) {
        APP_THROW(ApplicationException, texts_.notOnCard);
    }
    const boost::shared_ptr<const File> file = lockFile(file_);
    const P15Application::ChannelScope bound(application, channel);
    file->updateEncodedAttributes(encoding_, mw::ByteBuffer());
    encoding_.clear();
    entry_ = boost::none;
    this->valueHolder().forget();
    if (!location_.path.empty() && application.entriesNaming(channel, location_.path) == 0) {
        deleteIfPresent(channel, application, location_.path);
    }
}

template <class Generic, class File, class Entry>
mw::ByteBuffer P15ValueObject<Generic, File, Entry>::encode() const {
    return encodeKeyEntry(encodeEntry(location_), texts_.entryTooLong);
}

template class P15ValueObject<app::object::AbstractX509Certificate, fs::CDF, oss::CertificateType>;
template class P15ValueObject<app::object::AbstractDataObject, fs::DODF, oss::DataType>;

} // namespace object
} // namespace pkcs15
} // namespace app
