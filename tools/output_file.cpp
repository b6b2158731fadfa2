// SPDX-License-Identifier: Apache-2.0
#include "tools/output_file.h"

#include "tools/output.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>

namespace {

[[noreturn]] void fail(const std::string& target, const char* what, int error)
{
    throw Failure(EXIT_USAGE, target + ' ' + what + ": " + std::strerror(error));
}

[[noreturn]] void fail_existing(const std::string& target)
{
    throw Failure(EXIT_USAGE, target + " exists already (--force replaces it)");
}

// ------------------------------------------- What a signal leaves to remove

/// Names of temporary files. A signal's handler can reach nothing but statics, and of those only
/// what needs no lock.
std::array<std::atomic<const char*>, 8> pending;
static_assert(std::atomic<const char*>::is_always_lock_free, "read by the handler of a signal");

void remove_pending(int number)
{
    for (std::atomic<const char*>& entry : pending) {
        const char* const path = entry.exchange(nullptr);
        if (path)
            ::unlink(path);
    }
    ::signal(number, SIG_DFL);
    ::raise(number);
}

/// Once, when the first temporary file is made. What is ignored stays ignored, as under nohup.
void handle_signals()
{
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGXFSZ, SIGABRT}) {
        struct sigaction before = {};
        ::sigaction(number, nullptr, &before);
        if (before.sa_handler == SIG_IGN)
            continue;
        struct sigaction action = {};
        action.sa_handler = remove_pending;
        ::sigaction(number, &action, nullptr);
    }
}

/// @return the slot, -1 when all are taken: the file is then left over after a signal
int add_pending(const char* path)
{
    static std::once_flag once;
    std::call_once(once, handle_signals);
    for (size_t i = 0; i < pending.size(); ++i) {
        const char* expected = nullptr;
        if (pending[i].compare_exchange_strong(expected, path))
            return static_cast<int>(i);
    }
    return -1;
}

void drop_pending(int slot)
{
    if (slot >= 0)
        pending[static_cast<size_t>(slot)].store(nullptr);
}

// ---------------------------------------------------------- File by file

mode_t mode_for(const std::string& target)
{
    struct stat old = {};
    if (::stat(target.c_str(), &old) == 0)
        return old.st_mode & 0777;
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return 0666 & ~mask;
}

/// Renames without replacing; false when the target exists. File systems that cannot do so in one
/// step get it in two.
bool rename_to_new(const std::string& from, const std::string& to)
{
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return true;
    if (errno == EEXIST)
        return false;
    if (errno != EINVAL && errno != ENOSYS)
        fail(to, "cannot be renamed", errno);
    struct stat old = {};
    if (::lstat(to.c_str(), &old) == 0)
        return false;
    if (::rename(from.c_str(), to.c_str()) != 0)
        fail(to, "cannot be renamed", errno);
    return true;
}

/// So that the name outlives a loss of power as the content does. A failure is not told: some file
/// systems have no such thing.
void sync_folder(const std::string& path)
{
    const std::string folder = std::filesystem::path(path).parent_path().string();
    const int fd =
        ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

} // namespace

void OutputFile::Close::operator()(std::FILE* file) const
{
    if (file != stdout)
        std::fclose(file);
}

OutputFile::OutputFile(const std::string& target, bool force) : m_target(target), m_force(force)
{
    if (target == "-") {
        if (::isatty(STDOUT_FILENO))
            throw Failure(EXIT_USAGE, "stdout is a terminal, and this is no text");
        m_file.reset(stdout);
        return;
    }
    struct stat old = {};
    if (::stat(target.c_str(), &old) == 0 && !S_ISREG(old.st_mode)) {
        m_file.reset(std::fopen(target.c_str(), "wbe"));
        if (!m_file)
            fail(m_target, "cannot be written", errno);
        return;
    }
    if (::lstat(target.c_str(), &old) == 0) {
        if (!force)
            fail_existing(m_target);
        std::error_code error;
        const auto real = std::filesystem::canonical(target, error);
        if (!error)
            m_target = real.string();
    }
    open_temporary();
}

void OutputFile::open_temporary()
{
    const auto folder = std::filesystem::path(m_target).parent_path();
    std::string name = (folder / ".zoflv-XXXXXX").string();
    const int fd = ::mkostemp(name.data(), O_CLOEXEC);
    if (fd < 0)
        fail(m_target, "cannot be written", errno);
    m_temporary = std::move(name);
    m_slot = add_pending(m_temporary.c_str());
    m_file.reset(::fdopen(fd, "wb"));
    if (!m_file) {
        ::close(fd);
        ::unlink(m_temporary.c_str());
        drop_pending(m_slot);
        throw std::bad_alloc();
    }
}

OutputFile::~OutputFile()
{
    if (m_temporary.empty())
        return;
    drop_pending(m_slot);
    ::unlink(m_temporary.c_str());
}

void OutputFile::write(const void* bytes, size_t size)
{
    if (size > 0 && std::fwrite(bytes, 1, size, m_file.get()) != size)
        fail(m_target, "cannot be written", errno);
}

void OutputFile::rewrite(int64_t offset, const void* bytes, size_t size)
{
    if (::fseeko(m_file.get(), offset, SEEK_SET) != 0)
        fail(m_target, "cannot be written", errno);
    write(bytes, size);
    if (::fseeko(m_file.get(), 0, SEEK_END) != 0)
        fail(m_target, "cannot be written", errno);
}

void OutputFile::finish()
{
    if (std::fflush(m_file.get()) != 0)
        fail(m_target, "cannot be written", errno);
    if (m_temporary.empty())
        return;
    const int fd = ::fileno(m_file.get());
    if (::fchmod(fd, mode_for(m_target)) != 0 || ::fsync(fd) != 0)
        fail(m_target, "cannot be written", errno);
}

void OutputFile::publish()
{
    finish();
    if (m_temporary.empty())
        return;
    if (m_force) {
        if (::rename(m_temporary.c_str(), m_target.c_str()) != 0)
            fail(m_target, "cannot be renamed", errno);
    } else if (!rename_to_new(m_temporary, m_target)) {
        fail_existing(m_target);
    }
    drop_pending(m_slot);
    m_temporary.clear();
    sync_folder(m_target);
}

bool same_file(const std::string& a, const std::string& b)
{
    std::error_code error;
    return std::filesystem::equivalent(a, b, error);
}
