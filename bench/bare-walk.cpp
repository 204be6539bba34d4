// The floor of the search benchmark: two threads, getdents64 on folders opened relative to their
// parent, d_type only, ASCII-folded substring match, matching paths to standard output. No
// classification, no counting beyond what matching needs. Built by bench/run.sh, not by CI.
//
//     bare-walk NEEDLE ROOT
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

namespace {

struct Work
{
    std::string path;
};

std::mutex gMutex;
std::condition_variable gWake;
std::deque<std::string> gQueue;
int gBusy = 0;
std::mutex gOut;
std::string gNeedle;

void listOne(const std::string& path, std::string& out, std::deque<std::string>& local)
{
    const int fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return;
    alignas(8) static thread_local char buffer[64 * 1024];
    char folded[256];
    for (;;) {
        const ssize_t got = getdents64(fd, buffer, sizeof buffer);
        if (got <= 0)
            break;
        for (ssize_t pos = 0; pos < got;) {
            auto* entry = reinterpret_cast<dirent64*>(buffer + pos);
            pos += entry->d_reclen;
            const char* name = entry->d_name;
            if (name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0)))
                continue;
            size_t length = 0;
            for (; name[length] && length < 256; ++length)
                folded[length] = (name[length] >= 'A' && name[length] <= 'Z') ? name[length] + 32 : name[length];
            if (memmem(folded, length, gNeedle.data(), gNeedle.size()))
                out.append(path).append(1, '/').append(name, length).append(1, '\n');
            if (entry->d_type == DT_DIR)
                local.push_back(path + "/" + name);
        }
    }
    close(fd);
}

void worker()
{
    std::string out;
    std::deque<std::string> local;
    for (;;) {
        std::string path;
        {
            std::unique_lock lock(gMutex);
            gWake.wait(lock, [] { return !gQueue.empty() || gBusy == 0; });
            if (gQueue.empty())
                break;
            path = std::move(gQueue.back());
            gQueue.pop_back();
            ++gBusy;
        }
        local.push_back(std::move(path));
        while (!local.empty()) {
            std::string next = std::move(local.back());
            local.pop_back();
            listOne(next, out, local);
            // Share the oldest pending folder while the other thread may be idle.
            if (local.size() >= 2) {
                std::lock_guard lock(gMutex);
                if (gQueue.empty()) {
                    gQueue.push_back(std::move(local.front()));
                    local.pop_front();
                    gWake.notify_one();
                }
            }
            if (out.size() > 1 << 18) {
                std::lock_guard lock(gOut);
                fwrite(out.data(), 1, out.size(), stdout);
                out.clear();
            }
        }
        std::lock_guard lock(gMutex);
        if (--gBusy == 0)
            gWake.notify_all();
    }
    std::lock_guard lock(gOut);
    fwrite(out.data(), 1, out.size(), stdout);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: bare-walk NEEDLE ROOT\n");
        return 2;
    }
    gNeedle = argv[1];
    gQueue.push_back(argv[2]);
    std::thread a(worker), b(worker);
    a.join();
    b.join();
    return 0;
}
