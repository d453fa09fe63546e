// The connections to the store.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <CFG/CFG_DBRepository.h>
#include <thread/Mutex.h>

#include "answer_room.h"

namespace service {

// A repository over one connection, with what a service may do besides.
class StoreRepository : public CFG_DBRepository {
 public:
  using CFG_DBRepository::CFG_DBRepository;
  using CFG_DBRepository::WriteSubTree;
};

// As long as it lives, reads of trees and searches of the repository fail once `why` tells why to
// give up, and trees that it reads count in the room: one that finds none is not read on, and not
// answered.
class LongRead {
 public:
  LongRead(StoreRepository& store, std::function<std::string()> why, AnswerRoom& room)
      : m_store(store) {
    m_store.SetGiveUp(std::move(why));
    m_store.SetRoom([&room](size_t bytes) { return room.take(static_cast<int64_t>(bytes)); });
  }
  LongRead(const LongRead&) = delete;
  LongRead& operator=(const LongRead&) = delete;
  ~LongRead() {
    m_store.SetGiveUp(nullptr);
    m_store.SetRoom(nullptr);
  }

 private:
  StoreRepository& m_store;
};

// Makes connections as they are needed, and keeps those that came back for the next. Any thread.
class Stores {
 public:
  struct Return {
    Stores* stores;
    void operator()(StoreRepository* repository) const noexcept { stores->take_back(repository); }
  };
  // A connection for one user at a time. It goes back when this goes, and what was not committed
  // over it is undone; where that fails, the connection is closed instead.
  using Lease = std::unique_ptr<StoreRepository, Return>;

  // `write_wait`: how long a change waits for a writer outside this process, in milliseconds.
  Stores(RWCString connection, RWCString user, int write_wait);
  Stores(const Stores&) = delete;
  Stores& operator=(const Stores&) = delete;

  // Null, with the reason in the log, when the store cannot be reached.
  Lease lease();
  // Closes what nobody uses, but for so many.
  void shrink(size_t kept);

 private:
  void take_back(StoreRepository* repository) noexcept;

  const RWCString m_connection;
  const RWCString m_user;
  const int m_write_wait;
  Mutex m_mutex;
  std::vector<std::unique_ptr<StoreRepository>> m_free THREADAPI_GUARDED_BY(m_mutex);
};

}  // namespace service
