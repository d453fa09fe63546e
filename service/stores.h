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

  // Trees that it reads count there, unless it is null; one that finds no room is not read on, and
  // not answered.
  void CountTreesIn(AnswerRoom* room) {
    if (!room) return SetRoom(nullptr);
    SetRoom([room](size_t bytes) { return room->take(static_cast<int64_t>(bytes)); });
  }
};

// As long as it lives, reads of trees and searches fail once `why` tells why to give up.
class GiveUp {
 public:
  GiveUp(StoreRepository& store, std::function<std::string()> why) : m_store(store) {
    m_store.SetGiveUp(std::move(why));
  }
  GiveUp(const GiveUp&) = delete;
  GiveUp& operator=(const GiveUp&) = delete;
  ~GiveUp() { m_store.SetGiveUp(nullptr); }

 private:
  StoreRepository& m_store;
};

// As long as it lives, trees that are read count as a part of an answer.
class CountedTrees {
 public:
  CountedTrees(StoreRepository& store, AnswerRoom& room) : m_store(store) {
    m_store.CountTreesIn(&room);
  }
  CountedTrees(const CountedTrees&) = delete;
  CountedTrees& operator=(const CountedTrees&) = delete;
  ~CountedTrees() { m_store.CountTreesIn(nullptr); }

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
