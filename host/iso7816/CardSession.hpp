#ifndef HOST_ISO7816_CARDSESSION_HPP
#define HOST_ISO7816_CARDSESSION_HPP

#include "card/IBaseInterface.hpp"
#include "host/iso7816/AlgorithmList.hpp"
#include "host/iso7816/FileSelection.hpp"

#include <boost/shared_ptr.hpp>
#include <map>
#include <string>
#include <vector>

namespace card {
class IChannel;
}

namespace host {
namespace iso7816 {

// What the card object and the applet object of one card share: the
// selection state, the five services built over it, and the card's
// algorithm list, read with GET DATA over the session's own channel the
// first time someone asks.
class CardSession {
public:
    explicit CardSession(boost::shared_ptr<const card::IChannel> channel);

    void selectApplication(const card::IChannel& channel, const mw::ByteBuffer& aid) const;
    const std::vector<std::string>& algorithms() const;

    bool hasService(const std::string& name) const;
    boost::shared_ptr<card::IInterface> service(const std::string& name) const;

private:
    boost::shared_ptr<const card::IChannel> channel_;
    boost::shared_ptr<FileSelection> selection_;
    std::map<std::string, boost::shared_ptr<card::IInterface>> services_;
    boost::shared_ptr<AlgorithmList> algorithms_;
};

} // namespace iso7816
} // namespace host

#endif
