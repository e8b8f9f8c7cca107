// The /tmp fallback of the runtime directory is shared with every user of the
// box: a directory that another user made first, a link, or one that others
// may write must be refused, or they could answer for our endpoints. Run as
// root, each case runs in a child that takes a uid of its own.
#include "frame/Exception.h"
#include "rpc/RuntimeDirectory.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Velmora;
namespace fs = std::filesystem;

namespace {

constexpr uid_t USER = 54321; // a uid that no other test or developer uses

// What ensure() does for USER with `prepare` made beforehand: 0 for a
// directory of mode 0700 owned by USER, 1 for a refusal, 2 for anything else.
int ensureAsUser(std::function<void(fs::path const&)> const& prepare)
{
    fs::path const fallback = "/tmp/velmora-" + std::to_string(USER);
    fs::remove_all(fallback);
    prepare(fallback);
    pid_t const child = fork();
    if (child == 0) {
        unsetenv("VELMORA_RUNTIME_DIR");
        unsetenv("XDG_RUNTIME_DIR");
        if (setuid(USER) != 0)
            _exit(2);
        try {
            std::string const made = RuntimeDirectory::ensure();
            struct stat status {};
            bool const good = lstat(made.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
                              status.st_uid == USER && (status.st_mode & 07777) == 0700;
            _exit(good ? 0 : 2);
        } catch (Exception const&) {
            _exit(1);
        }
    }
    int status = 0;
    waitpid(child, &status, 0);
    fs::remove_all(fallback);
    fs::remove_all(fallback.string() + "-target");
    return WIFEXITED(status) ? WEXITSTATUS(status) : 2;
}

} // namespace

TEST(RuntimeDirectory, TheTmpFallbackMustBeOursAloneAndPrivate)
{
    if (getuid() != 0)
        GTEST_SKIP() << "needs root to act as a second user";
    // A directory made and handed to USER with `mode`, or a link to one.
    auto const owned = [](mode_t mode, bool link) {
        return [=](fs::path const& dir) {
            fs::path const made = link ? fs::path(dir.string() + "-target") : dir;
            fs::create_directory(made);
            chown(made.c_str(), USER, USER);
            chmod(made.c_str(), mode);
            if (link)
                fs::create_directory_symlink(made, dir);
        };
    };
    EXPECT_EQ(ensureAsUser([](fs::path const&) {}), 0) << "a missing fallback is made, private";
    EXPECT_EQ(ensureAsUser([](fs::path const& dir) { fs::create_directory(dir); }), 1) << "another user's";
    EXPECT_EQ(ensureAsUser(owned(0777, false)), 1) << "writable by others";
    EXPECT_EQ(ensureAsUser(owned(0700, true)), 1) << "a link";
}
