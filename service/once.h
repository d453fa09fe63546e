// Functions that are called once.
#pragma once

#include <memory>
#include <type_traits>
#include <utility>

namespace service {

// Like std::function, but it may own what cannot be copied, such as a request under way. What it
// owns goes when it was called, also when it throws, or when it goes itself.
template <class... A>
class Once {
 public:
  Once() = default;
  template <class Work>
  requires(!std::is_same_v<Work, Once>) Once(Work work)  // implicit, as std::function is
      : m_work(std::make_unique<Of<Work>>(std::move(work))) {}

  explicit operator bool() const { return m_work != nullptr; }
  void operator()(A... arguments) {
    const auto work = std::exchange(m_work, nullptr);
    work->run(std::forward<A>(arguments)...);
  }

 private:
  struct Any {
    virtual ~Any() = default;
    virtual void run(A... arguments) = 0;
  };
  template <class Work>
  struct Of final : Any {
    explicit Of(Work&& given) : work(std::move(given)) {}
    void run(A... arguments) override { work(std::forward<A>(arguments)...); }
    Work work;
  };

  std::unique_ptr<Any> m_work;
};

using Job = Once<>;

}  // namespace service
