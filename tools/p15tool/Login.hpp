#ifndef TOOLS_P15TOOL_LOGIN_HPP
#define TOOLS_P15TOOL_LOGIN_HPP

#include "mw/ByteBuffer.hpp"
#include "tools/p15tool/PinInput.hpp"
#include "tools/p15tool/Session.hpp"
#include "tools/p15tool/ToolError.hpp"

namespace app::object {
class IPin;
}

namespace p15tool {

// Runs a card operation; a wrong or blocked PIN ends the command with the
// tries left and what to do next, named as `secret` says.
template <class Operation> void onCard(const RefusedSecret& secret, Operation operation) {
    try {
        operation();
    } catch (const ToolError&) {
        throw;
    } catch (const std::exception& error) {
        const Failure failure = describeFailure(error, secret);
        throw ToolError(failure.code, failure.message);
    }
}

// onCard for a command that presents a PIN: from then on the session holds
// the card until its release resets it.
template <class Operation>
void presentPin(const Session& session, const RefusedSecret& secret, Operation operation) {
    session.presentingPin([&] { onCard(secret, operation); });
}

// How a refused `pin` is named, and what to do once it is blocked.
RefusedSecret refusedPin(const app::object::IPin& pin);

// `source` as asked for by the name of the PIN it gives: "User PIN: ", with
// the card free for other programs while the user types.
mw::ByteBuffer readPinOf(const Session& session, const app::object::IPin& pin, PinSource source,
                         bool isNew);

// A verification ends with the process, so a command that uses a key or
// changes the card verifies the user PIN itself, from `source`. Returns
// the PIN's authId, for the access rules of new objects.
mw::ByteBuffer verifyUserPin(const Session& session, const PinSource& source);

} // namespace p15tool

#endif
