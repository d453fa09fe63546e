// What a fuzz target must come to, so that one that turns back at the door fails.
#pragma once

// A place in a target, as an object at namespace scope: `Reach answered("a request is answered")`,
// called where it is reached. A run that ends without having been there prints the place and
// fails, whether it replays the stored corpus or looks for new inputs. One thread.
class Reach {
 public:
  explicit Reach(const char* place);
  void operator()() { m_is_reached = true; }
  bool operator()(bool condition) {  // hands it on
    m_is_reached |= condition;
    return condition;
  }

 private:
  static void check_all();

  const char* m_place;
  bool m_is_reached = false;
  Reach* m_next;
};
