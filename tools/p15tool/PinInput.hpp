#ifndef TOOLS_P15TOOL_PININPUT_HPP
#define TOOLS_P15TOOL_PININPUT_HPP

#include "tools/pininput/PinInput.hpp"

namespace p15tool {

using pininput::addPinOptions;
using pininput::PinSource;

// pininput::read, its failures as ToolErrors of the matching exit code.
mw::ByteBuffer readPin(const PinSource& source, bool isNew);

} // namespace p15tool

#endif
