// Prints every UDP datagram that reaches a port of its own as a line. Its first line is the port.
#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <string>

int main() {
    const int receiver = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(receiver, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        getsockname(receiver, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        std::perror("datagram_printer");
        return 1;
    }
    std::printf("%d\n", ntohs(address.sin_port));
    std::fflush(stdout);
    std::string datagram(65536, '\0');
    for (;;) {
        const ssize_t received = recv(receiver, datagram.data(), datagram.size(), 0);
        if (received < 0) return 0;
        std::printf("%.*s\n", static_cast<int>(received), datagram.c_str());
        std::fflush(stdout);
    }
}
