#include "tools/p15tool/PinInput.hpp"

#include "tools/p15tool/ToolError.hpp"

namespace p15tool {

mw::ByteBuffer readPin(const PinSource& source, bool isNew) {
    try {
        return pininput::read(source, isNew);
    } catch (const pininput::PinInputError& error) {
        using Kind = pininput::PinInputError::Kind;
        const Kind kind = error.kind();
        throw ToolError(kind == Kind::usage      ? ExitCode::usage
                        : kind == Kind::notFound ? ExitCode::notFound
                                                 : ExitCode::failure,
                        error.what());
    }
}

} // namespace p15tool
