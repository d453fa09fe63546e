// What runs at the grid. A script runs to its end before anybody else is served.
#include <datagrid/Grid_Records.h>

namespace grid_scripts {

// How many fields of the records are no paths: records and order fit when they differ by these.
#define GRID_COMMON                                                                      \
  "local records, order, marked = KEYS[1], KEYS[2], KEYS[3] "                            \
  "local function is_whole(r, o) "                                                       \
  "  return redis.call('HLEN', r) == redis.call('ZCARD', o) + 5 "                        \
  "end "                                                                                 \
  "local function is_below(path, top) "                                                  \
  "  return top == '' or path == top or string.sub(path, 1, #top + 1) == top .. '\\\\' " \
  "end "

// Nothing when it is not here whole, 'v' for a value, or 'k' and what is below it.
const char READ_TREE[] = GRID_COMMON R"lua(
local path, most, most_bytes = ARGV[1], tonumber(ARGV[2]), tonumber(ARGV[3])
local marks = redis.call('HGET', records, '\0marks')
local top = redis.call('HGET', records, path)
if not marks or not top or not is_whole(records, order) then return false end
for mark in string.gmatch(marks, '%d+ ([^%z]*)%z') do
  if is_below(path, mark) or is_below(mark, path) then return false end
end
if string.find(top, '^%d+ v') then return 'v' end
if not string.find(top, '^%d+ k$') then return false end
local from, to = '[' .. path .. '\\', '(' .. path .. ']'
if redis.call('ZLEXCOUNT', order, from, to) > most then return false end
local paths = redis.call('ZRANGE', order, from, to, 'BYLEX')
local out, bytes = {'k'}, 0
for first = 1, #paths, 4000 do
  local last = math.min(first + 3999, #paths)
  local found = redis.call('HMGET', records, unpack(paths, first, last))
  for i = first, last do
    local record = found[i - first + 1]
    if not record or string.sub(record, 1, 1) == '?' then return false end
    local name = string.sub(paths[i], #path + 2)
    bytes = bytes + #name + #record
    if bytes > most_bytes then return false end
    out[#out + 1] = #name .. ':' .. name .. #record .. ':' .. record
  end
end
return table.concat(out)
)lua";

const char MARK_VALUE[] = R"lua(
local path = ARGV[1]
local function mark(records, order, marked)
  if redis.call('EXISTS', records) == 0 then return end
  local n = redis.call('HINCRBY', records, '\0n', 1)
  if redis.call('HLEN', marked) >= 10000 then
    redis.call('HSET', records, '\0marks', n .. ' \0')
    redis.call('UNLINK', marked)
    return
  end
  redis.call('HSET', records, path, '?' .. n)
  redis.call('ZADD', order, 0, path)
  redis.call('HSET', marked, path, n)
  local rest = redis.call('PTTL', records)
  if rest > 0 then
    redis.call('PEXPIRE', order, rest)
    redis.call('PEXPIRE', marked, rest)
  end
end
mark(KEYS[1], KEYS[2], KEYS[3])
mark(KEYS[4], KEYS[5], KEYS[6])
return 'ok'
)lua";

// Marks below the new one go; too many become one of everything.
const char MARK_TREE[] = GRID_COMMON R"lua(
local path = ARGV[1]
local function mark(hash)
  local marks = redis.call('HGET', hash, '\0marks')
  if not marks then return end
  local n = redis.call('HINCRBY', hash, '\0n', 1)
  local out, is_all = {}, false
  for old, top in string.gmatch(marks, '(%d+) ([^%z]*)%z') do
    if not is_below(top, path) then out[#out + 1] = old .. ' ' .. top .. '\0' end
    is_all = is_all or top == ''
  end
  out[#out + 1] = n .. ' ' .. path .. '\0'
  local joined = table.concat(out)
  if is_all or #joined > 4096 then joined = n .. ' \0' end
  redis.call('HSET', hash, '\0marks', joined)
end
mark(KEYS[1])
mark(KEYS[4])
return 'ok'
)lua";

// id, fed, turn, number of marks, marks, and of some marked values the path and the number. Nothing
// when no tree is here whole. What is up to date is kept.
const char LOOK[] = GRID_COMMON R"lua(
if not is_whole(records, order) then return false end
local found = redis.call('HMGET', records, '\0id', '\0fed', '\0turn', '\0n', '\0marks')
if found[1] == ARGV[2] and found[2] == ARGV[3] then
  for _, key in ipairs(KEYS) do redis.call('PEXPIRE', key, ARGV[1]) end
end
for _, value in ipairs(redis.call('HSCAN', marked, 0, 'COUNT', 500)[2]) do
  if #found < 1005 then found[#found + 1] = value end
end
local out = {}
for i = 1, #found do out[i] = #(found[i] or '') .. ':' .. (found[i] or '') end
return table.concat(out)
)lua";

// Changes are 's' path record, 'd' path '', and 'r' path '' for all that is below a path.
const char CHANGE[] = GRID_COMMON R"lua(
local turn, from, to, seen, keep = ARGV[1], ARGV[2], ARGV[3], tonumber(ARGV[4]), ARGV[5]
if redis.call('HGET', records, '\0turn') ~= turn or redis.call('HGET', records, '\0fed') ~= from or
   not is_whole(records, order) then
  return 'other'
end
local function may_replace(path)
  local old = redis.call('HGET', records, path)
  if not old then return true end
  if string.sub(old, 1, 1) == '?' then return tonumber(string.sub(old, 2)) <= seen end
  return tonumber(string.match(old, '^%d+')) <= tonumber(to)
end
local function remove(path)
  if not may_replace(path) then return end
  redis.call('HDEL', records, path)
  redis.call('ZREM', order, path)
  redis.call('HDEL', marked, path)
end
for i = 6, #ARGV, 3 do
  local kind, path, record = ARGV[i], ARGV[i + 1], ARGV[i + 2]
  if kind == 's' then
    if may_replace(path) then
      redis.call('HSET', records, path, record)
      redis.call('ZADD', order, 0, path)
      redis.call('HDEL', marked, path)
    end
  elseif kind == 'd' then
    remove(path)
  else
    for _, below in ipairs(redis.call('ZRANGE', order, '[' .. path .. '\\', '(' .. path .. ']',
                                      'BYLEX')) do
      remove(below)
    end
  end
end
local left = {}
for n, path in string.gmatch(redis.call('HGET', records, '\0marks'), '(%d+) ([^%z]*)%z') do
  if tonumber(n) > seen then left[#left + 1] = n .. ' ' .. path .. '\0' end
end
redis.call('HSET', records, '\0marks', table.concat(left), '\0fed', to)
for _, key in ipairs(KEYS) do redis.call('PEXPIRE', key, keep) end
return 'ok'
)lua";

const char DROP[] = GRID_COMMON R"lua(
if redis.call('HGET', records, '\0turn') ~= ARGV[1] or
   redis.call('HGET', records, '\0fed') ~= ARGV[2] then
  return 'other'
end
redis.call('UNLINK', records, order, marked)
return 'ok'
)lua";

const char START[] = GRID_COMMON R"lua(
local turn = redis.call('HGET', records, '\0turn')
if turn and turn ~= ARGV[3] then return 'other' end
redis.call('UNLINK', records, order, marked)
redis.call('HSET', records, '\0turn', ARGV[1], '\0n', 0, '\0marks', '', '\0id', '', '\0fed', '')
redis.call('PEXPIRE', records, ARGV[2])
return 'ok'
)lua";

// What was marked since the start stays marked.
const char APPEND[] = GRID_COMMON R"lua(
if redis.call('HGET', records, '\0turn') ~= ARGV[1] then return 'other' end
for i = 3, #ARGV, 2 do
  if redis.call('HSETNX', records, ARGV[i], ARGV[i + 1]) == 1 then
    redis.call('ZADD', order, 0, ARGV[i])
  end
end
for _, key in ipairs(KEYS) do redis.call('PEXPIRE', key, ARGV[2]) end
return 'ok'
)lua";

// What is here of the same store stays when it is newer.
const char FINISH[] = GRID_COMMON R"lua(
local new = {KEYS[4], KEYS[5], KEYS[6]}
if redis.call('HGET', new[1], '\0turn') ~= ARGV[1] or not is_whole(new[1], new[2]) then
  return 'other'
end
local fed = redis.call('HGET', records, '\0fed')
if redis.call('HGET', records, '\0id') == ARGV[2] and tonumber(fed) > tonumber(ARGV[3]) then
  redis.call('UNLINK', unpack(new))
  return 'other'
end
redis.call('HSET', new[1], '\0id', ARGV[2], '\0fed', ARGV[3])
redis.call('UNLINK', records, order, marked)
for i = 1, 3 do
  if redis.call('EXISTS', new[i]) == 1 then
    redis.call('RENAME', new[i], KEYS[i])
    redis.call('PEXPIRE', KEYS[i], ARGV[4])
  end
end
return 'ok'
)lua";

#undef GRID_COMMON

}  // namespace grid_scripts
