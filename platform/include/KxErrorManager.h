// Error lists and the error manager of the target platform.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// One entry of a message table. A table ends with {0, nullptr} and lives as long as it is registered.
struct KxResText {
    std::uint32_t id;
    const char* text;
};

/// Message id under which a program registers its own display name.
inline constexpr std::uint32_t KX_MESSAGE_PROGRAM_NAME = 1;

/// Collects the errors of a call, a request or the whole process.
///
/// A callee reports a failure by adding an error; a caller detects it by comparing the count before and
/// after. All operations may be called from any thread.
class KxCErrorListPool {
public:
    struct KxSError {
        std::uint32_t messageId;  ///< id in a registered message table, 0 for none
        std::string detail;       ///< what happened, to what, and the system's own text
    };

    KxCErrorListPool();
    ~KxCErrorListPool();
    KxCErrorListPool(const KxCErrorListPool&) = delete;
    KxCErrorListPool& operator=(const KxCErrorListPool&) = delete;

    /// Adds one error and raises the count.
    void addError(std::uint32_t messageId, std::string_view detail);

    /// Number of errors that were ever added. Taking them out does not lower it.
    std::uint32_t getErrorCount() const;

    /// Moves the errors that nobody has taken yet out of the list, oldest first.
    std::vector<KxSError> takeErrors();

private:
    struct State;
    std::unique_ptr<State> state;  // made with the first error: most pools never hold one
    std::atomic<std::uint32_t> count{0};
    friend class KxCErrorManager;
};

/// Owns the process's master error list and the message tables.
class KxCErrorManager {
public:
    /// The instance once `getSingleton` has made it, null before.
    static std::atomic<KxCErrorManager*> instance;

    /// Makes the instance on the first call. It is never destroyed. Any thread.
    static KxCErrorManager* getSingleton();

    /// The list that decides the exit status. Lives as long as the process.
    /// An error that is added to it is also sent to the message manager at once when its client is open,
    /// so that an operator sees a failed start when it happens.
    KxCErrorListPool& getMasterErrorList();

    /// Sends the errors of `pool` that were not sent yet to the message manager and takes them out.
    /// `destination` 0 is the target's message log, the only one there is.
    void sendErrorList(KxCErrorListPool& pool, int destination);

    /// Adds or removes a message table. Callable during static initialisation and at exit.
    static void _registerMessages(const KxResText* table);
    static void _unregisterMessages(const KxResText* table);

    /// The text registered for `id`, or an empty text.
    static std::string findMessage(std::uint32_t id);

private:
    KxCErrorManager() = default;
};
