// The library that reads the journal of systemd: sd-journal(3).
#pragma once

#include <systemd/sd-journal.h>

#include <memory>

namespace KxNContainer {

/// Loaded when the first log is read from the journal: no process that does without has it in its memory.
struct JournalLibrary {
    /// Throws std::runtime_error when it is not there.
    static const JournalLibrary& get();

    struct Closer {
        void operator()(sd_journal* journal) const { get().close(journal); }
    };

    decltype(&::sd_journal_open) open;
    decltype(&::sd_journal_close) close;
    decltype(&::sd_journal_add_match) addMatch;
    decltype(&::sd_journal_set_data_threshold) setDataThreshold;
    decltype(&::sd_journal_get_fd) getFd;
    decltype(&::sd_journal_process) process;
    decltype(&::sd_journal_next) next;
    decltype(&::sd_journal_previous) previous;
    decltype(&::sd_journal_seek_head) seekHead;
    decltype(&::sd_journal_seek_tail) seekTail;
    decltype(&::sd_journal_seek_cursor) seekCursor;
    decltype(&::sd_journal_test_cursor) testCursor;
    decltype(&::sd_journal_get_cursor) getCursor;
    decltype(&::sd_journal_get_data) getData;
    decltype(&::sd_journal_get_realtime_usec) getRealtime;
    decltype(&::sd_journal_get_cutoff_realtime_usec) getCutoff;
};

using Journal = std::unique_ptr<sd_journal, JournalLibrary::Closer>;

/// Waits until journald has written what it was sent before, for a second at most: what a process wrote to the journal
/// before it ended need not be there yet. Asked as `journalctl --sync` does, by the interface io.systemd.Journal of
/// Varlink.
void synchroniseJournal();

}  // namespace KxNContainer
