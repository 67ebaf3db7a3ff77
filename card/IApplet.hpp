#ifndef CARD_IAPPLET_HPP
#define CARD_IAPPLET_HPP

#include "card/IBaseInterface.hpp"
#include "mw/Visibility.hpp"

#include <string>
#include <vector>

namespace card {

class IChannel;

// An application on the card that knows how to select itself.
class MW_EXPORT_TYPE IApplet : public IBaseInterface {
public:
    virtual void select(const IChannel& channel) const = 0;
    // Dotted identifiers of the algorithms the applet performs on its own.
    virtual std::vector<std::string> getAlgorithms() const = 0;
};

} // namespace card

#endif
