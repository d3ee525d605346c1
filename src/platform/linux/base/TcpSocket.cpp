#include "platform/linux/base/TcpSocket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace {

/// The system tells the outcome of connecting when the socket gets writable.
bool isSettledWell(int fd) {
    pollfd wanted{fd, POLLOUT, 0};
    int ready = 0;
    do {
        ready = poll(&wanted, 1, -1);
    } while (ready < 0 && errno == EINTR);
    int error = 0;
    socklen_t length = sizeof error;
    return ready == 1 && getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) == 0 && error == 0;
}

bool connectedToItself(int fd) {
    sockaddr_storage near{}, far{};
    socklen_t nearLength = sizeof near, farLength = sizeof far;
    return getsockname(fd, reinterpret_cast<sockaddr*>(&near), &nearLength) == 0 &&
           getpeername(fd, reinterpret_cast<sockaddr*>(&far), &farLength) == 0 && nearLength == farLength &&
           std::memcmp(&near, &far, nearLength) == 0;
}

}  // namespace

OwnedSocket::~OwnedSocket() {
    if (fd >= 0) close(fd);
}

int OwnedSocket::release() { return std::exchange(fd, -1); }

int openSocket(const addrinfo& address) {
    return socket(address.ai_family, address.ai_socktype | SOCK_CLOEXEC, address.ai_protocol);
}

bool beginConnect(int fd, const addrinfo& address) {
    if (fcntl(fd, F_SETFL, O_NONBLOCK) != 0) return false;
    return connect(fd, address.ai_addr, address.ai_addrlen) == 0 || errno == EINPROGRESS || errno == EINTR;
}

bool awaitConnect(int fd) { return isSettledWell(fd) && !connectedToItself(fd) && fcntl(fd, F_SETFL, 0) == 0; }
