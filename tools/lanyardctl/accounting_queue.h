// Records that no server has answered yet, in an SQLite file.
//
// A record is stored before it is sent and removed once it is answered, each in a transaction that is on the disk
// when the call returns. So whenever a process ends, and however, no record is lost. One that was answered and not
// removed any more is sent again, with the same Acct-Session-Id and Event-Timestamp.
//
// One process sends at a time: it holds the turn. It is a lock of the system's on a file of its own, which goes with
// the process.
#ifndef LANYARDCTL_ACCOUNTING_QUEUE_H
#define LANYARDCTL_ACCOUNTING_QUEUE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "accounting_record.h"
#include "database.h"
#include "tools/file_descriptor.h"

namespace lanyardctl {

class AccountingQueue {
  public:
    // Makes the file where it is missing, readable for its owner alone.
    explicit AccountingQueue(const std::string &file);

    [[nodiscard]] const std::string &file() const { return db_.file(); }

    // Returns the record's id.
    int64_t store(const Record &record) const;
    void remove(int64_t id) const;

    // The oldest one after that id.
    [[nodiscard]] std::optional<Record> next(int64_t after) const;
    [[nodiscard]] int64_t waiting() const;

    // Nobody answered, so all records that wait now wait in vain.
    void noteSilence() const;
    // How it stands with a record that was stored.
    enum class State { kWaits, kWaitsInVain, kGone };
    [[nodiscard]] State stateOf(int64_t id) const;

    // The right to send, until it goes. Waits for a process that has it.
    class Turn {
      public:
        explicit Turn(const AccountingQueue &queue);

      private:
        lanyard::FileDescriptor file_;
    };

  private:
    Database db_;
};

}  // namespace lanyardctl

#endif
