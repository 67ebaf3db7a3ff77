#ifndef TOOLS_P15TOOL_PINS_HPP
#define TOOLS_P15TOOL_PINS_HPP

#include "app/object/IPin.hpp"
#include "card/service/PinReference.hpp"
#include "tools/p15tool/Output.hpp"

#include <boost/shared_ptr.hpp>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}
namespace app::object {
class ICardObject;
class ICardObjectRepository;
} // namespace app::object

namespace p15tool {

using PinList = std::vector<boost::shared_ptr<app::object::IPin>>;

// Which PIN a command means: by label, by reference, or else the user PIN.
struct PinChoice {
    std::optional<std::string> label;
    std::optional<unsigned> reference;
};

// Adds --label L and --ref N, which exclude each other.
void addPinChoice(CLI::App& command, PinChoice& choice);

// The PINs among the application's authentication objects, in card order.
PinList pinsOf(const app::object::ICardObjectRepository& repository, const card::IChannel& channel);

// The PIN `choice` names. Without a label or reference: the user PIN, the
// first PIN that neither is an SO PIN nor unblocks another PIN. None is a
// ToolError (not found) that says how to list the PINs.
const app::object::IPin& choosePin(const PinList& pins, const PinChoice& choice);

// The PIN that unblocks `pin`: the one whose authId the entry names as
// protecting it; null when it names none the card has.
const app::object::IPin* unblockingPinOf(const app::object::IPin& pin, const PinList& pins);

// "User PIN", or "PIN 01" for a PIN without a label.
std::string pinName(const app::object::IPin& pin);

// A PIN as `pin status` shows it (label, authId, reference, type, flags,
// tries left, state); `detailed` adds what `list` shows besides: the object
// flags, lengths, padding, path, last change, the PIN that unblocks it and
// the access rules. `stateIfUntold` stands for the state of a card that
// does not tell it, when the command just set it.
Json pinJson(const app::object::IPin& pin, const card::IChannel& channel, const PinList& pins,
             bool detailed, std::optional<std::uint16_t> stateIfUntold = std::nullopt);

// An object of another kind by what every card object has: label, flags,
// access rules in words (authIds named by the PINs in `pins`).
Json cardObjectJson(const app::object::ICardObject& object, const PinList& pins);

} // namespace p15tool

#endif
