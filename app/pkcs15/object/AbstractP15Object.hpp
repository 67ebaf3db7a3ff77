#ifndef APP_PKCS15_OBJECT_ABSTRACTP15OBJECT_HPP
#define APP_PKCS15_OBJECT_ABSTRACTP15OBJECT_HPP

namespace card {
class IChannel;
}

namespace app {
namespace pkcs15 {

class P15Application;

namespace object {

// The card side of a PKCS#15 object: how it is read, stored and removed.
// The repository of the application dispatches to these.
class AbstractP15Object {
public:
    virtual ~AbstractP15Object() = default;
    // Reads the object's value from the card.
    virtual void read(const card::IChannel& channel, const P15Application& application) = 0;
    // Stores what the host changed: the directory entry and, for objects
    // with a value, the value. Nothing is sent when nothing was set.
    virtual void write(const card::IChannel& channel, const P15Application& application) const = 0;
    // Removes the object from the card.
    virtual void remove(const card::IChannel& channel, const P15Application& application) const = 0;
};

} // namespace object
} // namespace pkcs15
} // namespace app

#endif
