#include "tools/pininput/PinInput.hpp"

#include <CLI/CLI.hpp>

#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <termios.h>
#include <unistd.h>

namespace pininput {

namespace {

// Longer input is not a PIN; reading stops there.
constexpr std::size_t maxPinLength = 64;

// A file descriptor closed on every path out.
class Descriptor {
public:
    explicit Descriptor(int fd)
        : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

// The terminal to put back when a signal ends the process at a prompt.
int interruptedTerminal = -1;
termios interruptedSettings;

extern "C" void restoreTerminalAndDie(int signal) {
    ::tcsetattr(interruptedTerminal, TCSAFLUSH, &interruptedSettings);
    ::signal(signal, SIG_DFL);
    ::raise(signal);
}

// Echo off on the terminal for as long as it lives, and back on even when
// Ctrl-C or another signal ends the process meanwhile.
class EchoOff {
public:
    explicit EchoOff(int fd)
        : fd_(fd)
        , saved_()
        , active_(::tcgetattr(fd, &saved_) == 0) {
        if (!active_) {
            return;
        }
        interruptedTerminal = fd_;
        interruptedSettings = saved_;
        struct sigaction restore {};
        restore.sa_handler = restoreTerminalAndDie;
        for (std::size_t i = 0; i < std::size(signals); ++i) {
            ::sigaction(signals[i], &restore, &previous_[i]);
        }
        termios quiet = saved_;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        quiet.c_lflag |= ECHONL;
        ::tcsetattr(fd_, TCSAFLUSH, &quiet);
    }
    ~EchoOff() {
        if (!active_) {
            return;
        }
        ::tcsetattr(fd_, TCSAFLUSH, &saved_);
        for (std::size_t i = 0; i < std::size(signals); ++i) {
            ::sigaction(signals[i], &previous_[i], nullptr);
        }
    }
    EchoOff(const EchoOff&) = delete;
    EchoOff& operator=(const EchoOff&) = delete;

private:
    static constexpr int signals[] = {SIGINT, SIGTERM, SIGQUIT, SIGHUP};

    int fd_;
    termios saved_;
    bool active_;
    struct sigaction previous_[std::size(signals)];
};

// One line from fd, without its line end; at most maxPinLength bytes.
mw::ByteBuffer readLine(int fd, const std::string& what) {
    unsigned char line[maxPinLength + 1];
    std::size_t length = 0;
    bool ended = false;
    while (length <= maxPinLength) {
        unsigned char byte;
        const ssize_t got = ::read(fd, &byte, 1);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0 || byte == '\n') {
            ended = true;
            break;
        }
        line[length++] = byte;
    }
    if (length > 0 && line[length - 1] == '\r') {
        --length;
    }
    mw::ByteBuffer pin(line, ended ? length : 0);
    explicit_bzero(line, sizeof line);
    if (!ended) {
        throw PinInputError(PinInputError::Kind::usage, "the " + what + " is longer than " +
                                                            std::to_string(maxPinLength) +
                                                            " characters");
    }
    return pin;
}

mw::ByteBuffer fromEnvironment(const PinSource& source) {
    const char* value = std::getenv(source.environmentVariable.c_str());
    if (!value) {
        throw PinInputError(PinInputError::Kind::usage,
                            "the environment variable " + source.environmentVariable + " for the " +
                                source.name + " is not set");
    }
    return mw::ByteBuffer(reinterpret_cast<const unsigned char*>(value), std::strlen(value));
}

mw::ByteBuffer fromFile(const PinSource& source) {
    const Descriptor file(::open(source.file.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.get() < 0) {
        throw PinInputError(PinInputError::Kind::notFound, "cannot read the " + source.name +
                                                               " from " + source.file + ": " +
                                                               std::strerror(errno));
    }
    return readLine(file.get(), source.name);
}

mw::ByteBuffer prompt(int terminal, const std::string& text, const std::string& what) {
    const EchoOff quiet(terminal);
    if (::write(terminal, text.data(), text.size()) < 0) {
        throw PinInputError(PinInputError::Kind::failure,
                            "cannot ask for the " + what + " on the terminal");
    }
    return readLine(terminal, what);
}

bool same(const mw::ByteBuffer& a, const mw::ByteBuffer& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin());
}

mw::ByteBuffer fromTerminal(const PinSource& source, bool isNew) {
    const Descriptor terminal(::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (terminal.get() < 0) {
        throw PinInputError(PinInputError::Kind::usage,
                            "no terminal to ask for the " + source.name + "; give --" +
                                source.option + "-env VAR or --" + source.option + "-file FILE");
    }
    std::string first = source.name + ": ";
    first[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(first[0])));
    mw::ByteBuffer pin = prompt(terminal.get(), first, source.name);
    if (isNew &&
        !same(pin, prompt(terminal.get(), "Repeat the " + source.name + ": ", source.name))) {
        throw PinInputError(PinInputError::Kind::usage,
                            "the two " + source.name + " entries differ; nothing was changed");
    }
    return pin;
}

} // namespace

void addPinOptions(CLI::App& command, PinSource& source) {
    command
        .add_option("--" + source.option + "-env", source.environmentVariable,
                    "read the " + source.name + " from this environment variable")
        ->type_name("VAR");
    command
        .add_option("--" + source.option + "-file", source.file,
                    "read the " + source.name + " from the first line of this file")
        ->type_name("FILE");
}

// Every message about a new PIN says it is the new one.
mw::ByteBuffer read(const PinSource& source, bool isNew) {
    PinSource named = source;
    if (isNew && named.name.rfind("new ", 0) != 0) {
        named.name = "new " + named.name;
    }
    if (!named.environmentVariable.empty()) {
        return fromEnvironment(named);
    }
    if (!named.file.empty()) {
        return fromFile(named);
    }
    return fromTerminal(named, isNew);
}

} // namespace pininput
