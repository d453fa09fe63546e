#include <logging/Tmr_GLog.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <optional>

#include <logging/Log_Capture.h>
#include <logging/Log_Repeats.h>
#include <logging/Log_Settings.h>
#include <logging/Log_Sink.h>
#include <thread/ForkHandler.h>

constinit Tmr_GLog TmrGLog;

namespace {

// Everything that needs a constructor. Made by the first message and never destroyed,
// so that destructors of static objects can still log.
struct State {
  std::mutex settings;                                          // never held together with `output`
  int level = Log_Settings().level;                             // guarded by settings
  std::optional<unsigned char> own_levels[Tmr_GLog::kModules];  // guarded by settings
  int captures = 0;                                             // guarded by settings
  std::atomic<unsigned char> levels[Tmr_GLog::kModules] = {};   // what holds for a module

  std::mutex output;
  Log_Settings output_settings;                     // guarded by output
  std::unique_ptr<Log_Sink> sink;                   // guarded by output
  unsigned generation = 0;                          // guarded by output: of `sink`
  Log_Repeats repeats{Log_Settings().max_repeats};  // guarded by output

  // The output as it is now; a child opens its own. `output` is held.
  Log_Sink* own_sink();
  void write_held_back(const std::vector<Log_Repeats::HeldBack>& lines);

  static void told(void* object, ForkHandler::Phase phase);
  ForkHandler handler{ForkHandler::LOG, told, this};
};

Log_Sink* State::own_sink() {
  if (!sink || generation == ForkHandler::Generation()) return sink.get();
  generation = ForkHandler::Generation();
  repeats.take();  // its parent tells of those
  std::string why;
  if (auto own = Log_Sink::open(output_settings, why)) sink = std::move(own);
  return sink.get();
}

void State::write_held_back(const std::vector<Log_Repeats::HeldBack>& lines) {
  for (const auto& line : lines) sink->write(line.origin, line.text);
}

void State::told(void* object, ForkHandler::Phase phase) {
  auto& self = *static_cast<State*>(object);
  if (phase == ForkHandler::BEFORE) TmrGLog.GetLevel(0);  // which has the settings read by now
  for (std::mutex* mutex : {&self.settings, &self.output}) {
    phase == ForkHandler::BEFORE ? mutex->lock() : mutex->unlock();
  }
}

State& state() {
  static State* const the_state = new State;
  return *the_state;
}

// The child of a fork would wait for ever for a thread that was just making it.
[[maybe_unused]] const State& made_early = state();

thread_local Log_Origin this_threads_params = {"", "", 0, 0, 0};

unsigned char known_level(int level) {
  return static_cast<unsigned char>(std::clamp(level, 0, int{LOG_LEVEL_TRACE}));
}

void complain(const std::string& text) { std::fprintf(stderr, "logging: %s\n", text.c_str()); }

}  // namespace

void Tmr_GLog::set_gates() {
  State& s = state();
  for (int module = 0; module < kModules; ++module) {
    const unsigned char level = s.own_levels[module].value_or(known_level(s.level));
    s.levels[module].store(level, std::memory_order_relaxed);
    m_shut[module].store(s.captures ? 0 : LOG_LEVEL_TRACE - level, std::memory_order_relaxed);
  }
}

void Tmr_GLog::read_settings_once() {
  static const bool is_read = [this] {
    std::vector<std::string> complaints;
    const Log_Settings settings = Log_Settings::FromEnvironment(complaints);
    for (const std::string& text : complaints) complain(text);
    std::atexit([] { TmrGLog.Flush(); });
    replace_settings(settings);
    return true;
  }();
  static_cast<void>(is_read);
}

bool Tmr_GLog::replace_settings(const Log_Settings& settings) {
  std::string why;
  std::unique_ptr<Log_Sink> sink = Log_Sink::open(settings, why);
  const bool is_open = sink != nullptr;
  if (!is_open) {
    complain("the output can't be opened and messages go to standard error: " + why);
    sink = Log_Sink::open(Log_Settings(), why);
  }
  State& s = state();
  {
    const std::lock_guard lock(s.output);
    if (s.own_sink()) s.write_held_back(s.repeats.take());
    s.sink = std::move(sink);
    s.output_settings = is_open ? settings : Log_Settings();
    s.generation = ForkHandler::Generation();
    s.repeats = Log_Repeats(settings.max_repeats);
  }
  const std::lock_guard lock(s.settings);
  s.level = settings.level;
  std::fill(std::begin(s.own_levels), std::end(s.own_levels), std::nullopt);
  for (const auto& [module, level] : settings.module_levels) {
    s.own_levels[KnownModule(module)] = known_level(level);
  }
  set_gates();
  return is_open;
}

bool Tmr_GLog::Apply(const Log_Settings& settings) {
  read_settings_once();
  return replace_settings(settings);
}

void Tmr_GLog::SetLevel(int level) {
  read_settings_once();
  const std::lock_guard lock(state().settings);
  state().level = level;
  set_gates();
}

void Tmr_GLog::SetModuleLevel(int module, int level) {
  read_settings_once();
  const std::lock_guard lock(state().settings);
  state().own_levels[KnownModule(module)] = known_level(level);
  set_gates();
}

int Tmr_GLog::GetLevel(int module) {
  read_settings_once();
  return state().levels[KnownModule(module)].load(std::memory_order_relaxed);
}

void Tmr_GLog::count_capture(int change) {
  read_settings_once();
  const std::lock_guard lock(state().settings);
  state().captures += change;
  set_gates();
}

int Tmr_GLog::StoreParams(const char* file, const char* function, int line, int level, int module,
                          int) noexcept try {
  const int known = KnownModule(module);
  if (!IsOpen(level, known)) return 0;
  read_settings_once();
  if (!IsOpen(level, known)) return 0;
  this_threads_params = {file, function, line, level, module};
  return 1;
} catch (...) {
  return 0;
}

const Log_Origin& Tmr_GLog::stored_params() noexcept { return this_threads_params; }

void Tmr_GLog::write(const Log_Origin& origin, const char* format,
                     std::initializer_list<Log_Argument> args) noexcept try {
  const std::string text = Log_Render(format, args);
  Log_Capture::record(origin, text);
  // The gate may stand open for a capture only.
  if (origin.level > GetLevel(origin.module)) return;
  State& s = state();
  const std::lock_guard lock(s.output);
  Log_Sink* const sink = s.own_sink();
  if (!sink) return;
  s.write_held_back(s.repeats.next_second(std::chrono::steady_clock::now()));
  if (s.repeats.admits(origin, text)) sink->write(origin, text);
} catch (...) {
  // No memory for the text: the line is dropped.
}

std::string Tmr_GLog::GetApplicationName() {
  const char* const name = std::getenv("HALVORIA_LOG_APPLICATION");
  return name && *name ? name : program_invocation_short_name;
}

void Tmr_GLog::Flush() noexcept try {
  State& s = state();
  const std::lock_guard lock(s.output);
  if (s.own_sink()) s.write_held_back(s.repeats.take());
} catch (...) {
  // As above.
}
