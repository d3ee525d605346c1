#pragma once
/// From a host's name to the addresses of a TCP server.

#include <netdb.h>

#include <memory>
#include <string>

/// Gives an address list back to the system.
struct AddressListDeleter {
    /// Frees all of `list`.
    void operator()(addrinfo* list) const { freeaddrinfo(list); }
};
/// Addresses in the order in which they are to be tried.
using AddressList = std::unique_ptr<addrinfo, AddressListDeleter>;

/// What became of a resolution.
struct Resolution {
    AddressList addresses;  ///< Null when there are none.
    int error = 0;          ///< What `getaddrinfo` returned; 0 without addresses: it could not be asked.
};

/// Looks up `host`, a name or an address, for stream connections to `port`. Waits for the name service, with a stack
/// of its own: the resolver needs more of it than the kit's threads have.
Resolution resolveHost(const std::string& host, int port);
