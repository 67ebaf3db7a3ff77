#ifndef HOST_PCSC_PCSCCONTEXT_HPP
#define HOST_PCSC_PCSCCONTEXT_HPP

#include <PCSC/winscard.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace host {

// A connection to the PC/SC resource manager (pcscd).
class PcscContext {
public:
    PcscContext();
    ~PcscContext();
    PcscContext(const PcscContext&) = delete;
    PcscContext& operator=(const PcscContext&) = delete;

    // The readers pcscd knows; none is an empty list.
    std::vector<std::string> listReaders() const;
    // Waits at most `timeout` for a card in `reader`; true when one is there.
    bool waitForCard(const std::string& reader, std::chrono::milliseconds timeout) const;
    // Waits at most `timeout` until `reader` holds no card (empty,
    // unavailable or gone); true when so. A lost pcscd is an error, not a
    // removal.
    bool waitForRemoval(const std::string& reader, std::chrono::milliseconds timeout) const;

    SCARDCONTEXT handle() const { return context_; }

private:
    // Waits until the reader's state is one that `reached` accepts; false
    // when `timeout` passed first.
    bool waitForState(const std::string& reader, std::chrono::milliseconds timeout,
                      const std::function<bool(DWORD)>& reached) const;

    SCARDCONTEXT context_ = 0;
};

} // namespace host

#endif
