// A cache of the datagrid that the processes of the installation share.
#pragma once

#include <string>
#include <type_traits>

#include <datagrid/Grid_Client.h>

// A map from texts to texts or numbers. Operations wait a second at most; while there is no
// connection they find nothing and do nothing, at once. One thread at a time; only Connect throws.
template <class K, class V>
class IgniteCacheClient {
  static_assert(std::is_same_v<K, std::string>, "keys are texts");
  static_assert(std::is_same_v<V, std::string> || std::is_same_v<V, int>,
                "values are texts or numbers");

 public:
  // `address` is "host:port". With `reconnect`, a connection that was lost, or could not be
  // made, is tried again, every 30 seconds at most. There is no encryption yet: the certificate is
  // empty. Throws a std::exception that says why there is no connection.
  void Connect(const std::string& cache, const std::string& address, bool reconnect,
               const std::string& user, const std::string& password,
               const std::string& certificate) {
    m_client.Connect(cache, address, reconnect, user, password, certificate);
  }
  bool IsConnected() { return m_client.IsConnected(); }

  // V() when there is no such key, or its value is not a V.
  V Get(const K& key) {
    std::string text;
    if (!m_client.Get(key, text)) return V();
    if constexpr (std::is_same_v<V, int>) {
      try {
        return std::stoi(text);
      } catch (const std::exception&) {
        return 0;
      }
    } else {
      return text;
    }
  }
  bool Put(const K& key, const V& value) {
    if constexpr (std::is_same_v<V, int>) {
      return m_client.Put(key, std::to_string(value));
    } else {
      return m_client.Put(key, value);
    }
  }
  // False when there was nothing to remove, too.
  bool Remove(const K& key) { return m_client.Remove(key); }

 private:
  Grid_Client m_client;
};
