#include "ixfs_prepare.h"
#include "ixfs_vmir.h"

#include <cstdio>
#include <exception>
#include <memory>
#include <new>
#include <stdexcept>

namespace
{

using Request = ixfs_prepare_request;

// Reads a request of a caller that may know fewer members: the others are 0 or null.
class RequestReader
{
public:
    explicit RequestReader(const Request& request) : request_(request) {}

    template <typename Member>
    Member operator()(Member Request::*member) const
    {
        const auto* const begin = reinterpret_cast<const char*>(&request_);
        const auto* const end = reinterpret_cast<const char*>(&(request_.*member) + 1);
        return end <= begin + request_.size ? request_.*member : Member{};
    }

private:
    const Request& request_;
};

// What a preparation needs, as the C++ call wants it.
struct Call {
    MountCreds creds{};
    std::vector<std::string> disks;
    LogInfo log{};
    bool new_disk_uuids = false;
};

// The result that a caller sees, and what it points to. Needs no memory to tell of a failure.
class Result : public ixfs_prepare_result
{
public:
    Result() : ixfs_prepare_result{EC_OK, nullptr, "", 0, no_paths, 0} {}

    // Prepares, or fails with a status. Throws what the preparation throws.
    void prepare(const Request* request)
    {
        Call call;
        if (!is_complete(request) || !read(RequestReader(*request), call))
            return;
        path_pointers_.reserve(call.disks.size() + 1); // later the view would be made in vain
        const ec_status came = ixfs_prepare_vmir(call.creds, call.disks, &call.log, configuration_,
                                                 paths_, call.new_disk_uuids);
        if (came == EC_OK)
            show_paths();
        else
            fail(came, ixfs_status_text(came));
    }

    void fail(ec_status why, const char* what)
    {
        status = why;
        std::snprintf(error_text_, sizeof(error_text_), "%s", what);
        error = error_text_;
    }

    // After a failure, too, the caller sees what was read.
    void show_configuration()
    {
        configuration = configuration_.c_str();
        configuration_length = configuration_.size();
    }

private:
    bool refuse(const char* what)
    {
        status = EC_INVALID_PARAMETER;
        std::snprintf(error_text_, sizeof(error_text_), "invalid parameter: %s", what);
        error = error_text_;
        return false;
    }

    bool is_complete(const Request* request)
    {
        if (request == nullptr)
            return refuse("the request is null");
        if (request->size < sizeof(request->size) || request->size > sizeof(Request))
            return refuse("the request's size is none of this library's");
        return true;
    }

    bool read(const RequestReader& given, Call& call)
    {
        const char* const backup_id = given(&Request::backup_id);
        call.creds.server = given(&Request::server);
        call.creds.mount_cred = given(&Request::mount_cred);
        call.creds.unmount_cred = given(&Request::unmount_cred);
        if (call.creds.server == nullptr)
            return refuse("server is null");
        if (call.creds.mount_cred == nullptr)
            return refuse("mount_cred is null");
        if (call.creds.unmount_cred == nullptr)
            return refuse("unmount_cred is null");
        if (backup_id == nullptr)
            return refuse("backup_id is null");
        call.creds.backup_id = backup_id;
        call.creds.port = given(&Request::port);
        call.creds.schedule_type = given(&Request::schedule_type);
        call.creds.timeout = given(&Request::timeout);
        call.new_disk_uuids = given(&Request::new_disk_uuids) != 0;
        call.log.log_callback = given(&Request::log_callback);
        return read_disks(given(&Request::disks), given(&Request::disk_count), call.disks);
    }

    bool read_disks(const char* const* given, std::size_t count, std::vector<std::string>& disks)
    {
        if (given == nullptr && count > 0)
            return refuse("disks is null");
        for (std::size_t i = 0; i < count; ++i) {
            if (given[i] == nullptr) {
                char what[64];
                std::snprintf(what, sizeof(what), "disks[%zu] is null", i);
                return refuse(what);
            }
            disks.emplace_back(given[i]);
        }
        return true;
    }

    void show_paths()
    {
        for (const std::string& path : paths_)
            path_pointers_.push_back(path.c_str());
        path_pointers_.push_back(nullptr);
        paths = path_pointers_.data();
        path_count = paths_.size();
    }

    static constexpr const char* no_paths[] = {nullptr};

    char error_text_[256];
    std::string configuration_;
    std::vector<std::string> paths_;
    std::vector<const char*> path_pointers_;
};

} // namespace

// Not every exception is caught: the cancellation of a thread is one, too, and must go on.
ixfs_prepare_result* ixfs_prepare(const ixfs_prepare_request* request)
{
    std::unique_ptr<Result> result(new (std::nothrow) Result);
    if (result == nullptr)
        return nullptr;
    try {
        result->prepare(request);
    } catch (const std::bad_alloc&) {
        result->fail(EC_NO_MEMORY, ixfs_status_text(EC_NO_MEMORY));
    } catch (const std::length_error&) {
        result->fail(EC_FILE_NOT_READ, "the VM configuration file has an absurd size");
    } catch (const std::exception& error) {
        result->fail(EC_SYSTEM_ERROR, error.what());
    }
    result->show_configuration();
    return result.release();
}

void ixfs_prepare_result_free(ixfs_prepare_result* result)
{
    delete static_cast<Result*>(result);
}
