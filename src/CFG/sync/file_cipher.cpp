#include <CFG/sync/file_cipher.h>

#include <string>

#include <SECM/SECM_crypt.h>
#include <logging/Logger.h>
#include <system/Sys_Process.h>
#include <utility/Tmr_Base64Utils.h>
#include <utility/Tmr_Version.h>

namespace cfg {

namespace {

constexpr Log_Logger logger("src/CFG/CFG_SynchronizedFileRepository", 502);

RWCString gen_key() {
  constexpr size_t shortest = 16;
  const RWCString computer = Sys_ComputerName();
  if (computer.isNull()) logger.error("gen_key(): error while generating key\n");
  std::string text = computer.str() + Tmr_Version::GetVersion().str();
  if (text.size() < shortest) text.resize(shortest, '0');
  const RWCString key = Tmr_Base64Utils::Encode(text.data(), static_cast<int>(text.size()), false);
  if (key.isNull()) logger.error("gen_key(): failed converting key to base 64 \n");
  return key;
}

}  // namespace

std::unique_ptr<SECM_crypt> made_file_cipher() {
  return std::make_unique<SECM_crypt>(SECM_crypt::RC4, gen_key().str());
}

}  // namespace cfg
