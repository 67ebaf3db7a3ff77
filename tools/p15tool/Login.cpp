#include "tools/p15tool/Login.hpp"

#include "host/Channel.hpp"
#include "tools/p15tool/Pins.hpp"
#include "tools/p15tool/Session.hpp"

namespace p15tool {

RefusedSecret refusedPin(const app::object::IPin& pin) {
    return {pinName(pin), "unblock it with its PUK: p15tool pin unblock [--new-pin]",
            "new " + pinName(pin)};
}

mw::ByteBuffer readPinOf(const Session& session, const app::object::IPin& pin, PinSource source,
                         bool isNew) {
    source.name = pinName(pin);
    return session.whileCardFree([&] { return readPin(source, isNew); });
}

mw::ByteBuffer verifyUserPin(const Session& session, const PinSource& source) {
    const PinList pins = pinsOf(session.repository(), session.channel());
    const app::object::IPin& pin = choosePin(pins, PinChoice{});
    const mw::ByteBuffer value = readPinOf(session, pin, source, false);
    presentPin(session, refusedPin(pin), [&] { pin.authenticate(session.channel(), value); });
    return pin.getAuthId();
}

} // namespace p15tool
