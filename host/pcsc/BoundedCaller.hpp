#ifndef HOST_PCSC_BOUNDEDCALLER_HPP
#define HOST_PCSC_BOUNDEDCALLER_HPP

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

namespace host {

/// Runs calls that may block without bound (pcsc-lite waits for another
/// application's transaction to end) on a long-lived helper thread, while
/// the caller waits at most a time limit. A helper stuck past the limit is
/// abandoned: it finishes its call on its own and hands the late result to
/// a discard function; the next call starts a fresh helper. One caller at a
/// time; a process forked from the owner starts its own helper.
class BoundedCaller {
public:
    BoundedCaller() = default;
    /// Ends the idle helper and waits for it; an abandoned one runs on.
    ~BoundedCaller();
    BoundedCaller(const BoundedCaller&) = delete;
    BoundedCaller& operator=(const BoundedCaller&) = delete;

    /// The result of `call`, or none when it did not return within `limit`;
    /// then `discard` receives the result once it comes.
    template <class Result, class Call, class Discard>
    std::optional<Result> call(std::chrono::milliseconds limit, Call call, Discard discard) {
        auto result = std::make_shared<std::optional<Result>>();
        const bool inTime = run(
            limit, [result, call] { *result = call(); }, [result, discard] { discard(**result); });
        return inTime ? *result : std::nullopt;
    }

private:
    struct Helper;
    /// Runs `task` on the helper; true when it ended within `limit`,
    /// otherwise the helper runs `late` after it and ends.
    bool run(std::chrono::milliseconds limit, std::function<void()> task,
             std::function<void()> late);
    void start();
    // Lets go of the helper without waiting for it.
    void abandon();

    std::shared_ptr<Helper> helper_;
    std::thread thread_;
    pid_t owner_ = 0;
};

} // namespace host

#endif
