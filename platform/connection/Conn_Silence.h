// Services that did not answer in time.
#pragma once

#include <string_view>

// For a second after it kept somebody waiting in vain a service is not asked again, by any
// connection of the process: one thread that waits is enough. Any answer ends that. Any thread.
namespace Conn_Silence {
void Note(std::string_view address);
bool Holds(std::string_view address);
void End(std::string_view address);
}  // namespace Conn_Silence
