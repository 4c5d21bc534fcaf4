// Mounts the backup images of several servers at a time, and unmounts them. Each line of the library
// goes to the journal with the name of the server that it is about, in a field of its own:
//
//     log_to_journal PORT SERVER... < CREDENTIALS
//     journalctl IXFS_SERVER=media1
//
// Standard input holds the credential for the mount and that for the unmount, one a line.
#include "log_per_handle.hpp"
#include "safe_words.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace
{

// Sends entries in the journal's own protocol: a datagram for each, with all its fields.
class Journal
{
public:
    Journal() : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        if (socket_ == -1)
            throw std::runtime_error("no socket for the journal");
    }
    ~Journal() { close(socket_); }
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    // Where nobody listens, the entry is lost.
    void send(const std::string& entry) const
    {
        sockaddr_un address{AF_UNIX, "/run/systemd/journal/socket"};
        sendto(socket_, entry.data(), entry.size(), MSG_NOSIGNAL,
               reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    }

    // A field with any bytes: name, length as 64 bits in little endian order, value.
    static std::string field(const std::string& name, std::string_view value)
    {
        std::string field = name + '\n';
        for (unsigned int shift = 0; shift < 64; shift += 8)
            field += static_cast<char>(std::uint64_t{value.size()} >> shift & 0xff);
        return field.append(value) + '\n';
    }

private:
    int socket_;
};

// Some lines of the highest severity are no problems. Their messages begin with "INF -".
int priority_of(int severity, std::string_view message)
{
    if (severity == IXFS_LOG_INF || message.substr(0, 5) == "INF -")
        return LOG_INFO;
    return severity == IXFS_LOG_WRN ? LOG_WARNING : LOG_ERR;
}

// What follows "-cred " may be a credential, and many can read the journal.
std::string_view readable(std::string_view message)
{
    message = message.substr(0, message.find("-cred "));
    return message.substr(0, message.find_last_not_of('\n') + 1);
}

// A server's image with a handle and a log of its own. Unmounted at its end.
class ServerImage
{
public:
    ServerImage(std::string server, const Journal& journal)
        : server_(std::move(server)),
          log_([this, &journal](int severity, const char* tag, const char* message) {
              journal.send(
                  Journal::field("MESSAGE", readable(message)) +
                  Journal::field("PRIORITY", std::to_string(priority_of(severity, message))) +
                  Journal::field("SYSLOG_IDENTIFIER", "log_to_journal") +
                  Journal::field("IXFS_SERVER", server_) + Journal::field("IXFS_FUNCTION", tag));
          }),
          handle_(ixfs_init(IXFS_FLAG_UNMOUNT_CRED, nullptr, log_.callback(), nullptr, nullptr))
    {
        if (handle_ == nullptr)
            throw std::bad_alloc();
    }

    bool mount(int port, const credentials& credentials)
    {
        const char* const mount_point =
            ixfs_mount(handle_.get(), credentials.mount, credentials.unmount, port, server_.c_str(),
                       30, nullptr);
        std::cout << server_ << ": "
                  << (mount_point != nullptr ? mount_point
                                             : ixfs_status_text(ixfs_last_error(handle_.get())))
                  << '\n';
        return mount_point != nullptr;
    }

    bool unmount()
    {
        const ec_status status = ixfs_unmount(handle_.get());
        if (status != EC_OK)
            std::cout << server_ << ": unmount: " << ixfs_status_text(status) << '\n';
        return status == EC_OK;
    }

private:
    struct Ender {
        void operator()(_ixfs_control_t* handle) const { ixfs_term(handle); }
    };

    std::string server_;
    HandleLog log_;
    std::unique_ptr<_ixfs_control_t, Ender> handle_; // ends before its log
};

bool are_server_names(const std::vector<std::string>& texts)
{
    for (const std::string& text : texts) {
        if (is_server_name(text.c_str()) == 0)
            return false;
    }
    return !texts.empty();
}

bool mount_and_unmount(int port, const std::vector<std::string>& servers,
                       const credentials& credentials)
{
    const Journal journal;
    std::deque<ServerImage> images;
    bool all_well = true;
    for (const std::string& server : servers)
        all_well &= images.emplace_back(server, journal).mount(port, credentials);
    for (ServerImage& image : images)
        all_well &= image.unmount();
    return all_well;
}

} // namespace

int main(int argc, char* argv[])
{
    const std::vector<std::string> servers(argv + std::min(argc, 2), argv + argc);
    credentials credentials{};
    if (!are_server_names(servers) || !read_credentials(&credentials)) {
        std::cerr << "usage: log_to_journal PORT SERVER... < CREDENTIALS\n" SAFE_WORDS_ARE;
        return 2;
    }
    try {
        return mount_and_unmount(std::atoi(argv[1]), servers, credentials) ? 0 : 1;
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
