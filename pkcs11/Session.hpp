#ifndef PKCS11_SESSION_HPP
#define PKCS11_SESSION_HPP

#include "pkcs11/Operation.hpp"

#include <optional>
#include <vector>

namespace pkcs11 {

// A search under way: the handles found at C_FindObjectsInit, handed out in
// turn.
struct Search {
    std::vector<CK_OBJECT_HANDLE> found;
    std::size_t next = 0;
};

// One PKCS#11 session: its slot, its flags, and the search and the one
// cryptographic operation under way.
struct Session {
    CK_SESSION_HANDLE handle = 0;
    CK_SLOT_ID slot = 0;
    CK_FLAGS flags = 0;
    std::optional<Search> search;
    std::optional<Operation> operation;

    bool readWrite() const { return (flags & CKF_RW_SESSION) != 0; }
};

} // namespace pkcs11

#endif
