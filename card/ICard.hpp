#ifndef CARD_ICARD_HPP
#define CARD_ICARD_HPP

#include "card/IBaseInterface.hpp"
#include "mw/ByteBuffer.hpp"
#include "mw/Visibility.hpp"

#include <string>
#include <vector>

namespace card {

class IChannel;

// A connected card, used by applications that select themselves by AID.
class MW_EXPORT_TYPE ICard : public IBaseInterface {
public:
    // Selects the application with the given identifier; a card without it
    // answers with a card::CardException carrying the status word.
    virtual void selectApplication(const IChannel& channel, const mw::ByteBuffer& aid) const = 0;
    // Dotted identifiers of the algorithms the card performs on its own.
    virtual std::vector<std::string> getAlgorithms() const = 0;
};

} // namespace card

#endif
