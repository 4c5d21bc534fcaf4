// A program in C++ that was built when a release was new, and runs with today's library:
//
//     client SERVER
//
// What it relies on is what the release's headers gave it: records that both sides read, code that
// was compiled in, virtual functions, and an exception that it knows.
#include <ixfs_vmir.h>

#include <cstdlib>
#include <iostream>
#include <memory>

#define EXPECT(condition) expect(condition, #condition, __LINE__)

namespace
{

const std::string image = "backups/sample-client/allusers/full/1700000000";

void expect(bool condition, const char* what, int line)
{
    if (condition)
        return;
    std::cerr << "client.cpp:" << line << ": failed: " << what << '\n';
    std::exit(1);
}

LmfString text(const char* content)
{
    return {content, LmfString::to_nul, nullptr, 0};
}

void use_strings()
{
    LmfString first = text("a");
    EXPECT(first.text() == "a" && std::string(first.utf8_str()) == "a");
    EXPECT(first.code_page() == StringConverter::getDefaultNarrowCodePage(false));
    EXPECT(StringConverter::s_defaultNarrowCodePageId == first.code_page());
    EXPECT(StringConverter::getUtf8CodePage() == getCodePageMgr().getCodePageId("UTF8"));
    EXPECT(StringConverter::s_utf8CodePageId == StringConverter::getUtf8CodePage());
    first = std::string("b");
    EXPECT(LmfString().text().empty() && text("a") < first && !(first < text("a")));
    first = "c";
    EXPECT(first.text() == "c");

    LmfPathname path;
    path.makeFilename("/usr", false);
    path.makeFilename("a//b", true);
    EXPECT(path.segments() == nullptr && std::string(path.display_str()) == "/usr/a//b");
    path.makeSegments();
    EXPECT(path.segments()->count() == 3);
    EXPECT(std::string(path.segments()->getSegment(1, nullptr, nullptr)) == "/usr");
    EXPECT(std::string(path.segments()->getSegment(-1, nullptr, nullptr)) == "b");
}

// Derived here, with the tables of virtual functions that this program and the library make.
void use_virtual_functions()
{
    static int destroyed;
    struct Name : LmfString {
        Name() : LmfString("name", to_nul, nullptr, 0) {}
        Name(const Name&) = delete;
        Name& operator=(const Name&) = delete;
        ~Name() override { ++destroyed; }
    };
    struct Path : LmfPathname {
        Path() = default;
        Path(const Path&) = delete;
        Path& operator=(const Path&) = delete;
        ~Path() override { ++destroyed; }
    };
    std::unique_ptr<LmfString> name = std::make_unique<Name>();
    EXPECT(dynamic_cast<Name*>(name.get()) != nullptr && name->text() == "name");
    name.reset();
    std::unique_ptr<LmfPathname>(std::make_unique<Path>()).reset();
    EXPECT(destroyed == 2);
}

void use_the_exception()
{
    LmfString out = text("kept");
    try {
        buildDatastore(text("no datastore"), out);
        EXPECT(false);
    } catch (const EcStatusException& error) {
        EXPECT(error.status == EC_INVALID_PARAMETER && out.text() == "kept");
        EXPECT(error.what() == error.message);
        EXPECT(error.message == "buildDatastore: error code: 20, invalid parameter");
    }
    try {
        buildDatastore(text("no datastore"), out);
    } catch (const std::exception& error) {
        EXPECT(std::string(error.what()).find("invalid parameter") != std::string::npos);
    }
    EcStatusException own(EC_FILE_NOT_FOUND, std::string("mine"));
    own.setMsg("still mine");
    EXPECT(own.message == "still mine: error code: 142, file not found");
    EcStatusException copy(EC_OK, "other");
    copy = own;
    EXPECT(copy.status == EC_FILE_NOT_FOUND && copy.message == own.message);
}

// The library fills the records, this program reads and destroys them.
void use_records(_ixfs_control_t* handle)
{
    std::vector<std::string> entries{"[ds] " + image + "/vm1/disk.vmdk.desc",
                                     "[ds] " + image + "/vm2/disk.vmdk.desc"};
    std::vector<VmirPath> records;
    LmfString view = text("view");
    populateVmirPathVector(handle, entries, view, records);
    EXPECT(records.size() == 2);
    const VmirPath& second = records[1];
    EXPECT(second.datastoreDescPath.text() == entries[1]);
    EXPECT(second.datastore.text() == "[ds]");
    EXPECT(second.originalDescPath.text() == image + "/vm2/disk.vmdk.desc");
    EXPECT(second.originalVmdkPath.text() == image + "/vm2/disk.vmdk");
    EXPECT(second.baseName.text() == "disk(1)");
    EXPECT(second.viewDescPath.text() == "view/disk(1).vmdk");
    EXPECT(second.viewVmdkPath.text() == "view/disk(1)-flat.vmdk");
    EXPECT(second.datastoreViewDescPath.text() == "[ds] view/disk(1).vmdk");

    std::vector<std::string> shown{"first"};
    convertVmdkPathsListToCharArrays(records, shown);
    EXPECT(shown.size() == 3 && shown[2] == "[ds] view/disk(1).vmdk");

    std::set<LmfString> used{text("a")};
    LmfString name = text("a");
    EXPECT(ensureUniquenessOfBasename(used, name) && name.text() == "a(1)" && used.size() == 2);

    EXPECT(convertUnixPathToPlatformPath(text("a"), text("b")).text() == "a/b");
    EXPECT(getVmdkUuid().size() == 47);
    LmfPathname path;
    std::string client;
    long time = 0;
    EXPECT(makeClientAndBackupTime(handle, "a_b_12", client, time) == EC_OK);
    EXPECT(client == "a_b" && time == 12);
    buildImagePath(handle, client, time, 1, path);
    EXPECT(path.text() == "backups/a_b/allusers/incr/12");
    EXPECT(buildPathToXml(handle, client, time, 0, path) == EC_INVALID_PARAMETER);
}

int lines;

void use_a_preparation(const char* server)
{
    MountCreds creds{};
    creds.server = server;
    creds.port = 4010;
    creds.mount_cred = "cred";
    creds.unmount_cred = "cred";
    creds.backup_id = "sample-client_1700000000";
    std::vector<std::string> disks{"[ds] " + image + "/vm1/disk.vmdk.desc"};
    LogInfo log{nullptr, [](int, const char*, const char*) {
                    ++lines;
                }};
    std::string configuration;
    std::vector<std::string> out{"first"};
    EXPECT(ixfs_prepare_vmir(creds, disks, &log, configuration, out, true) == EC_OK);
    EXPECT(lines > 0 && configuration.find("<VirtualMachine ") != configuration.npos);
    EXPECT(out.size() == 2 && out[1] == "[ds] " + image + "/_vmir/disk.vmdk");
}

} // namespace

int main(int argc, char* argv[])
{
    EXPECT(argc == 2);
    use_strings();
    use_virtual_functions();
    use_the_exception();
    _ixfs_control_t* const handle = ixfs_init(0, nullptr, nullptr, nullptr, nullptr);
    use_records(handle);
    ixfs_term(handle);
    use_a_preparation(argv[1]);
    return 0;
}
