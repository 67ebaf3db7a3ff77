#include "host/iso7816/FileSelection.hpp"

#include "card/CardException.hpp"
#include "card/IChannel.hpp"
#include "host/iso7816/CardCapabilities.hpp"
#include "host/iso7816/IsoCommand.hpp"
#include "mw/Exception.hpp"

#include <algorithm>

namespace host {
namespace iso7816 {

namespace {

const char* const selectName = "Select";
constexpr unsigned char selectIns = 0xA4;
constexpr unsigned char byDfName = 0x04;
constexpr unsigned char byFileId = 0x00;
constexpr unsigned char byPathFromMf = 0x08;
constexpr unsigned char answerFcp = 0x04;
constexpr unsigned char answerNothing = 0x0C;
constexpr std::size_t fullAnswer = 256;

bool startsWith(const mw::ByteBuffer& path, unsigned char high, unsigned char low) {
    return path.size() >= 2 && path.get(0) == high && path.get(1) == low;
}

bool startsWith(const mw::ByteBuffer& path, const mw::ByteBuffer& prefix) {
    return path.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), path.begin());
}

[[noreturn]] void throwMismatch(const char* text) {
    CARD_THROW(card::InvalidDataException() << card::ErrorText(text));
}

// The FCP of the file at `absolutePath` (empty for the MF): it must describe
// that file, or what the host does next would act on another one.
Fcp parseFcpOf(const mw::ByteBuffer& absolutePath, const mw::ByteBuffer& answer) {
    try {
        Fcp fcp = Fcp::parse(answer);
        const bool isMf = absolutePath.empty();
        const mw::ByteBuffer fileId = isMf ? mw::ByteBuffer{0x3F, 0x00} : lastFileId(absolutePath);
        if (isMf && !fcp.isDf()) {
            throwMismatch("FCP of the MF describes no DF");
        }
        if (!fcp.fileId.empty() && fcp.fileId != fileId) {
            throwMismatch("FCP with another file identifier than selected");
        }
        return fcp;
    } catch (card::CardException& e) {
        nameCommand(e, selectName);
        e << filePath(absolutePath);
        throw;
    }
}

mw::ByteBuffer withoutFirstFileId(const mw::ByteBuffer& path) {
    return path.get(2, path.size() - 2);
}

} // namespace

mw::ByteBuffer parentPath(const mw::ByteBuffer& absolutePath) {
    return absolutePath.get(0, absolutePath.size() - 2);
}

mw::ByteBuffer lastFileId(const mw::ByteBuffer& absolutePath) {
    return absolutePath.get(absolutePath.size() - 2, 2);
}

void FileSelection::selectApplication(const card::Transaction& held, const mw::ByteBuffer& aid) {
    currentDf_.reset();
    currentFile_.reset();
    const mw::ByteBuffer answer = IsoCommand(selectName, selectIns, byDfName, answerFcp)
                                      .withData(aid)
                                      .expecting(fullAnswer)
                                      .execute(held);
    Fcp fcp = parseAnswerOf(selectName, [&] { return Fcp::parse(answer); });
    if (!fcp.isDf() || fcp.fileId.empty()) {
        CARD_THROW(card::InvalidDataException()
                   << card::Command(selectName)
                   << card::ErrorText("application FCP names no DF file identifier"));
    }
    applicationDf_ = fcp.fileId;
    currentDf_ = fcp.fileId;
    currentPath_ = fcp.fileId;
    currentFile_ = std::move(fcp);
    resetsSeen_ = held.transport().resetCount();
}

mw::ByteBuffer FileSelection::sendSelectCommand(const card::Transaction& held,
                                                const mw::ByteBuffer& absolutePath, bool wantFcp) {
    // Forget first: after a failure the card's selection is not known.
    currentDf_.reset();
    currentFile_.reset();
    const bool isMf = absolutePath.empty();
    IsoCommand select(selectName, selectIns, isMf ? byFileId : byPathFromMf,
                      wantFcp ? answerFcp : answerNothing);
    select.withData(isMf ? mw::ByteBuffer{0x3F, 0x00} : absolutePath);
    if (wantFcp) {
        select.expecting(fullAnswer);
    }
    mw::ByteBuffer answer;
    try {
        answer = select.execute(held);
    } catch (card::CardException& e) {
        e << filePath(absolutePath);
        throw;
    }
    resetsSeen_ = held.transport().resetCount();
    return answer;
}

const Fcp& FileSelection::select(const card::Transaction& held, const mw::ByteBuffer& path) {
    const mw::ByteBuffer absolute = absolutePath(path);
    followReset(held);
    if (currentFile_ && currentPath_ == absolute) {
        return *currentFile_; // the card has it selected already
    }
    return selectAbsolute(held, absolute);
}

const Fcp& FileSelection::selectAbsolute(const card::Transaction& held,
                                         const mw::ByteBuffer& absolutePath) {
    Fcp fcp = parseFcpOf(absolutePath, sendSelectCommand(held, absolutePath, true));
    currentDf_ = fcp.isDf() ? absolutePath : parentPath(absolutePath);
    currentPath_ = absolutePath;
    currentFile_ = std::move(fcp);
    return *currentFile_;
}

void FileSelection::selectDf(const card::Transaction& held, const mw::ByteBuffer& absolutePath) {
    followReset(held);
    if (currentDf_ && *currentDf_ == absolutePath) {
        return; // commands on the current DF need no new selection
    }
    sendSelectCommand(held, absolutePath, false);
    currentDf_ = absolutePath;
}

void FileSelection::enterApplication(const card::Transaction& held) {
    followReset(held);
    if (!applicationDf_ || (currentDf_ && startsWith(*currentDf_, *applicationDf_))) {
        return;
    }
    selectDf(held, *applicationDf_);
}

void FileSelection::followReset(const card::Transaction& held) {
    const unsigned long resets = held.transport().resetCount();
    if (resets == resetsSeen_) {
        return;
    }
    resetsSeen_ = resets;
    currentDf_.reset(); // the card is in the MF
    if (currentFile_) {
        selectAbsolute(held, mw::ByteBuffer(currentPath_));
    }
}

mw::ByteBuffer FileSelection::absolutePath(const mw::ByteBuffer& path) const {
    if (path.empty() || path.size() % 2 != 0) {
        MW_THROW(mw::IllegalArgumentException, "a path is a non-empty run of 2-byte file ids");
    }
    if (startsWith(path, 0x3F, 0x00)) {
        return withoutFirstFileId(path);
    }
    mw::ByteBuffer absolute = applicationDf();
    absolute.append(startsWith(path, 0x3F, 0xFF) ? withoutFirstFileId(path) : path);
    return absolute;
}

const mw::ByteBuffer& FileSelection::applicationDf() const {
    if (!applicationDf_) {
        CARD_THROW(card::CardException() << card::ErrorText("no application selected on the card"));
    }
    return *applicationDf_;
}

const Fcp& FileSelection::currentFile() const {
    if (!currentFile_) {
        CARD_THROW(card::CardException() << card::ErrorText("no file selected"));
    }
    return *currentFile_;
}

void FileSelection::created(const mw::ByteBuffer& parentDf, Fcp fcp) {
    currentDf_ = parentDf;
    currentPath_ = parentDf;
    currentPath_.append(fcp.fileId);
    currentFile_ = std::move(fcp);
}

void FileSelection::deleted(const mw::ByteBuffer& parentDf) {
    currentFile_.reset();
    currentDf_ = parentDf;
}

bool FileSelection::extendedLength(const card::ICardTransport& transport) {
    if (!extendedLength_) {
        extendedLength_ = CardCapabilities::fromAtr(transport.getAtr()).extendedLength;
    }
    return *extendedLength_;
}

} // namespace iso7816
} // namespace host
