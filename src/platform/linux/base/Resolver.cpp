#include "platform/linux/base/Resolver.h"

#include <sys/socket.h>

#include "sw_drv/RTkernel/linux/threadfunc.h"

namespace {

/// A failing getaddrinfo with one search domain was seen to use 17160 bytes; modules of the name service add to that.
constexpr unsigned kResolverStackBytes = 256U * 1024U;
constexpr int kResolverPriority = 20;

struct Query {
    const char* host;
    std::string service;
    addrinfo* addresses = nullptr;
    int error = 0;
};

std::uint32_t runQuery(void* argument) {
    auto& query = *static_cast<Query*>(argument);
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    query.error = getaddrinfo(query.host, query.service.c_str(), &hints, &query.addresses);
    return 0;
}

}  // namespace

Resolution resolveHost(const std::string& host, int port) {
    Query query{host.c_str(), std::to_string(port)};
    // No origin: the thread is a part of this call, not one that a list of started threads should show.
    const pthread_t thread =
        threadfunc::ThreadCreate(kResolverPriority, runQuery, &query, kResolverStackBytes, nullptr, 0);
    if (thread == 0) return {};
    threadfunc::threadJoin(thread);
    return {AddressList(query.error == 0 ? query.addresses : nullptr), query.error};
}
