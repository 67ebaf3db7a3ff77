#ifndef HOST_ISO7816_ALGORITHMLIST_HPP
#define HOST_ISO7816_ALGORITHMLIST_HPP

#include <boost/shared_ptr.hpp>
#include <optional>
#include <string>
#include <vector>

namespace card {
class IChannel;
}

namespace host {
namespace iso7816 {

/// The dotted identifiers of the algorithms the card performs on its own,
/// read with GET DATA over the given channel the first time someone asks.
/// A card that refuses the GET DATA, with whatever status word, lists none.
class AlgorithmList {
public:
    explicit AlgorithmList(boost::shared_ptr<const card::IChannel> channel);

    const std::vector<std::string>& get() const;
    bool contains(const std::string& oid) const;

private:
    boost::shared_ptr<const card::IChannel> channel_;
    mutable std::optional<std::vector<std::string>> algorithms_;
};

} // namespace iso7816
} // namespace host

#endif
