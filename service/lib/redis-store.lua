-- What is true of users and channels, as functions of Redis: each call is one step that changes the state and tells those
-- concerned, whole and at once. store.js has the operations, redis-store.js calls them, service/README.md lists the keys.
--
-- Whoever is to hear of something is on a socket of some process, and each process has a stream: what it shall tell, and the
-- answers to its own requests, in the order of the steps. An address is "PROCESS SOCKET"; what follows in it does not matter.

-- Of the present call.
local prefix, process, request, app, base

local NOTHING = {}
local function text(value) return cjson.encode(value) end

local function selectApp(name)
  app = name
  base = prefix .. #name .. ':' .. name .. ':'
end

local function key(kind, name) return base .. kind .. ':' .. (name or '') end
local function streamOf(name) return prefix .. 'stream:' .. name end
local function sessionsOf(name) return prefix .. 'sessions:' .. name end
local function requestsOf(name) return prefix .. 'requests:' .. name end

-- JSON

local function list(items)
  local parts = {}
  for i, item in ipairs(items) do parts[i] = text(item) end
  return '[' .. table.concat(parts, ',') .. ']'
end

local function object(flat)
  local parts = {}
  for i = 1, #flat, 2 do parts[#parts + 1] = text(flat[i]) .. ':' .. text(flat[i + 1]) end
  return '{' .. table.concat(parts, ',') .. '}'
end

local function result(number) return '{"result":' .. number .. '}' end

-- Telling

local function tell(addresses, event, items)
  local sockets, id = {}, nil
  for _, address in ipairs(addresses) do
    local to, socket = string.match(address, '^(%S+) (%S+)')
    if not sockets[to] then sockets[to] = {} end
    table.insert(sockets[to], socket)
  end
  for to, some in pairs(sockets) do
    id = redis.call('XADD', streamOf(to), '*', event, items, app, table.concat(some, ' '))
  end
  return id
end

local function answer(response) redis.call('XADD', streamOf(process), '*', request, response) end

local function addressOf(user)
  local session = redis.call('HMGET', key('session', user), 'process', 'socket')
  return session[1] and session[1] .. ' ' .. session[2]
end

local function isOnline(user) return redis.call('EXISTS', key('session', user)) == 1 end

local function addressesOf(users)
  local addresses = {}
  for _, user in ipairs(users) do addresses[#addresses + 1] = addressOf(user) end
  return addresses
end

local function watchersOf(kind, peer) return addressesOf(redis.call('SMEMBERS', key('watchers-' .. kind, peer))) end

local function online(users)
  local parts = {}
  for i, user in ipairs(users) do parts[i] = text(user) .. ':' .. tostring(isOnline(user)) end
  return '{' .. table.concat(parts, ',') .. '}'
end

local function tellStatus(user) tell(watchersOf('status', user), 'peersStatus', '[' .. online({ user }) .. ']') end

-- Attributes

local function tellAttributes(user, before, after)
  tell(watchersOf('attributes', user), 'userAttributesChanged',
    '[' .. text(user) .. ',' .. object(before) .. ',' .. object(after) .. ']')
end

-- Changes the attributes at a key, and returns how they were and are; nothing when they would be beyond the limits.
local function edit(at, how, given, most, mostBytes)
  local before, after = redis.call('HGETALL', at), {}
  if how == 'merge' or how == 'removeKeys' then
    for i = 1, #before, 2 do after[before[i]] = before[i + 1] end
  end
  if how == 'removeKeys' then
    for _, name in ipairs(given) do after[name] = nil end
  else
    for i = 1, #given, 2 do after[given[i]] = given[i + 1] end
  end
  local flat, bytes = {}, 0
  for name, value in pairs(after) do
    flat[#flat + 1], flat[#flat + 2] = name, value
    bytes = bytes + #name + #value
  end
  if #flat / 2 > tonumber(most) or bytes > tonumber(mostBytes) then return nil end
  redis.call('DEL', at)
  for i = 1, #flat, 2 do redis.call('HSET', at, flat[i], flat[i + 1]) end
  return before, flat
end

-- All attributes at a key as JSON, or those that are named.
local function attributesAt(at, names)
  if #names == 0 then return object(redis.call('HGETALL', at)) end
  local flat = {}
  for _, name in ipairs(names) do
    local value = redis.call('HGET', at, name)
    if value then flat[#flat + 1], flat[#flat + 2] = name, value end
  end
  return object(flat)
end

-- Channels. A member's place is his address and his number, in the order of joining.

local function placesIn(channel, except)
  local flat, places = redis.call('HGETALL', key('members', channel)), {}
  for i = 1, #flat, 2 do
    if flat[i] ~= except then places[#places + 1] = flat[i + 1] end
  end
  return places
end

local function membersOf(channel)
  local flat, users, numbers = redis.call('HGETALL', key('members', channel)), {}, {}
  for i = 1, #flat, 2 do
    users[#users + 1] = flat[i]
    numbers[flat[i]] = tonumber(string.match(flat[i + 1], '%d+$'))
  end
  table.sort(users, function(a, b) return numbers[a] < numbers[b] end)
  return users
end

-- Its members are still to be told how many they are; it is forgotten when there is nothing to know of it.
local function recount(channel)
  local count = redis.call('HLEN', key('members', channel))
  redis.call('SADD', prefix .. 'recounted', cjson.encode({ app, channel }))
  if count == 0 and redis.call('EXISTS', key('channel-attributes', channel)) == 0 then
    redis.call('ZREM', key('channels'), channel)
  else
    redis.call('ZADD', key('channels'), count, channel)
  end
end

local function countOf(channel) return redis.call('HLEN', key('members', channel)) end

local function counts(channels)
  local parts = {}
  for i, channel in ipairs(channels) do parts[i] = text(channel) .. ':' .. countOf(channel) end
  return '{' .. table.concat(parts, ',') .. '}'
end

local function part(channel, user, reason)
  redis.call('HDEL', key('members', channel), user)
  tell(placesIn(channel), 'memberLeft', list({ channel, user, reason }))
  recount(channel)
end

-- Messages to users. One that is to be kept for a user who is offline is owed to one who is online until his process has
-- passed it on: should that process die before, it is kept.

local function isBefore(id, other)
  local time, number = string.match(id, '(%d+)-(%d+)')
  local otherTime, otherNumber = string.match(other, '(%d+)-(%d+)')
  if time ~= otherTime then return tonumber(time) < tonumber(otherTime) end
  return tonumber(number) < tonumber(otherNumber)
end

-- The oldest that a process has not passed on; all older entries it has removed from its stream.
local function oldestIn(name)
  local entries = redis.call('XRANGE', streamOf(name), '-', '+', 'COUNT', 1)
  return entries[1] and entries[1][1]
end

local function owe(user, to, id, message)
  local owed, oldest = key('owed', user), oldestIn(to)
  while true do
    local first = redis.call('LINDEX', owed, 0)
    if not first or not isBefore(string.match(first, '^%S+'), oldest) then break end
    redis.call('LPOP', owed)
  end
  redis.call('RPUSH', owed, id .. ' ' .. message)
end

-- `passedOn`: the newest entry of which the process says so itself; absent when others speak for it.
local function keepOwed(user, from, passedOn)
  local oldest = oldestIn(from)
  for _, entry in ipairs(redis.call('LRANGE', key('owed', user), 0, -1)) do
    local id, message = string.match(entry, '^(%S+) (.*)$')
    local isPassedOn = not oldest or isBefore(id, oldest) or (passedOn and not isBefore(passedOn, id))
    if not isPassedOn then redis.call('RPUSH', key('kept', user), message) end
  end
  redis.call('DEL', key('owed', user))
end

-- Sessions

local function isSession(user, socket)
  local session = redis.call('HMGET', key('session', user), 'process', 'socket')
  return session[1] == process and session[2] == socket
end

-- Ends what lasts as long as a session.
local function forget(user, passedOn)
  local from = redis.call('HGET', key('session', user), 'process')
  for _, kind in ipairs({ 'status', 'attributes' }) do
    for _, peer in ipairs(redis.call('ZRANGE', key('watched-' .. kind, user), 0, -1)) do
      redis.call('SREM', key('watchers-' .. kind, peer), user)
    end
    redis.call('DEL', key('watched-' .. kind, user))
  end
  for _, channel in ipairs(redis.call('ZRANGE', key('joined', user), 0, -1)) do part(channel, user, 'Disconnect') end
  local attributes = redis.call('HGETALL', key('attributes', user))
  redis.call('DEL', key('session', user), key('joined', user), key('attributes', user))
  redis.call('SREM', sessionsOf(from), cjson.encode({ app, user }))
  keepOwed(user, from, passedOn)
  if #attributes > 0 then tellAttributes(user, attributes, NOTHING) end
end

-- The operations of users who have a session, each with the user and the arguments; they return the answer. Lists come as
-- JSON: Lua passes only so many arguments.

local operations = {}

function operations.join(user, channel, mostChannels, mostMembers)
  local joined, members = key('joined', user), key('members', channel)
  if redis.call('ZSCORE', joined, channel) then return result(0) end
  if redis.call('ZCARD', joined) >= tonumber(mostChannels) then return result(5) end
  if redis.call('HLEN', members) >= tonumber(mostMembers) then return result(6) end
  tell(placesIn(channel), 'memberJoined', list({ channel, user }))
  local number = redis.call('INCR', key('number'))
  redis.call('HSET', members, user, addressOf(user) .. ' ' .. number)
  redis.call('ZADD', joined, number, channel)
  recount(channel)
  return result(0)
end

function operations.leave(user, channel)
  if redis.call('ZREM', key('joined', user), channel) == 0 then return result(6) end
  part(channel, user, 'Quit')
  return result(0)
end

function operations.members(user, channel)
  if redis.call('HEXISTS', key('members', channel), user) == 0 then return result(5) end
  return '{"result":0,"members":' .. list(membersOf(channel)) .. '}'
end

function operations.memberCounts(_, channels)
  return '{"result":0,"counts":' .. counts(cjson.decode(channels)) .. '}'
end

function operations.sendToChannel(user, channel, time, content)
  if redis.call('HEXISTS', key('members', channel), user) == 0 then return result(5) end
  tell(placesIn(channel, user), 'channelMessage',
    '[' .. text(channel) .. ',' .. text(user) .. ',' .. time .. ',' .. content .. ']')
  return result(0)
end

function operations.editChannelAttributes(_, channel, how, given, most, mostBytes, notify)
  local before, after = edit(key('channel-attributes', channel), how, cjson.decode(given), most, mostBytes)
  if not before then return result(4) end
  local count = countOf(channel)
  if count == 0 and #after == 0 then
    redis.call('ZREM', key('channels'), channel)
  else
    redis.call('ZADD', key('channels'), count, channel)
  end
  if notify == 'true' then
    tell(placesIn(channel), 'channelAttributesUpdated', '[' .. text(channel) .. ',' .. object(after) .. ']')
  end
  return result(0)
end

function operations.channelAttributes(_, channel, names)
  return '{"result":0,"attributes":' .. attributesAt(key('channel-attributes', channel), cjson.decode(names)) .. '}'
end

function operations.editUserAttributes(user, how, given, most, mostBytes)
  local before, after = edit(key('attributes', user), how, cjson.decode(given), most, mostBytes)
  if not before then return result(4) end
  tellAttributes(user, before, after)
  return result(0)
end

function operations.userAttributes(_, users, names)
  local parts = {}
  names = cjson.decode(names)
  for i, user in ipairs(cjson.decode(users)) do
    local response = result(6)
    if isOnline(user) then
      response = '{"result":0,"attributes":' .. attributesAt(key('attributes', user), names) .. '}'
    end
    parts[i] = text(user) .. ':' .. response
  end
  return '{"result":0,"attributes":{' .. table.concat(parts, ',') .. '}}'
end

function operations.subscribe(user, kind, peers, most)
  local watched, added = key('watched-' .. kind, user), {}
  peers = cjson.decode(peers)
  for _, peer in ipairs(peers) do
    if not redis.call('ZSCORE', watched, peer) then added[#added + 1] = peer end
  end
  if redis.call('ZCARD', watched) + #added > tonumber(most) then return result(6) end
  for _, peer in ipairs(added) do
    redis.call('ZADD', watched, redis.call('INCR', key('number')), peer)
    redis.call('SADD', key('watchers-' .. kind, peer), user)
  end
  answer(result(0))
  if kind == 'status' then tell({ addressOf(user) }, 'peersStatus', '[' .. online(peers) .. ']') end
end

function operations.unsubscribe(user, kind, peers)
  for _, peer in ipairs(cjson.decode(peers)) do
    redis.call('ZREM', key('watched-' .. kind, user), peer)
    redis.call('SREM', key('watchers-' .. kind, peer), user)
  end
  return result(0)
end

function operations.subscriptions(user, kind)
  return '{"result":0,"userIds":' .. list(redis.call('ZRANGE', key('watched-' .. kind, user), 0, -1)) .. '}'
end

function operations.areOnline(_, users) return '{"result":0,"status":' .. online(cjson.decode(users)) .. '}' end

function operations.sendToPeer(user, target, time, content, isToBeKept, most)
  local message = '{"fromUserId":' .. text(user) .. ',"serverReceivedTs":' .. time .. ',"content":' .. content .. '}'
  local address = addressOf(target)
  if address then
    local id = tell({ address }, 'peerMessages', '[[' .. message .. ']]')
    if isToBeKept == 'true' then owe(target, string.match(address, '^%S+'), id, message) end
    return result(0)
  end
  if isToBeKept ~= 'true' then return result(3) end
  if redis.call('LLEN', key('kept', target)) >= tonumber(most) then return result(6) end
  redis.call('RPUSH', key('kept', target), message)
  return result(0)
end

local function dropInvitation(pair)
  redis.call('ZREM', key('invitation-ends'), pair)
  redis.call('HDEL', key('invitations'), pair)
end

function operations.invite(_, inviter, invitee, invitation, now, lifetime)
  if redis.call('SISMEMBER', key('known'), invitee) == 0 then return result(3) end
  local address, pair = addressOf(invitee), list({ inviter, invitee })
  if not address then return result(4) end
  redis.call('HSET', key('invitations'), pair, invitation)
  redis.call('ZADD', key('invitation-ends'), now + lifetime, pair)
  for _, over in ipairs(redis.call('ZRANGEBYSCORE', key('invitation-ends'), '-inf', now)) do dropInvitation(over) end
  tell({ address }, 'invitationNotice', '[' .. invitation .. ']')
  return result(0)
end

function operations.endInvitation(user, inviter, invitee, needsOther, changes, now)
  local pair = list({ inviter, invitee })
  local ends = redis.call('ZSCORE', key('invitation-ends'), pair)
  if not ends or tonumber(ends) <= tonumber(now) then return result(0) end
  local address = addressOf(user == inviter and invitee or inviter)
  if not address and needsOther == 'true' then return result(4) end
  local invitation = redis.call('HGET', key('invitations'), pair)
  dropInvitation(pair)
  if address then tell({ address }, 'invitationNotice', '[' .. invitation .. ',' .. changes .. ']') end
  return result(0)
end

-- The steps of processes.

local steps = {}

function steps.open(user, socket, since)
  local older = addressOf(user)
  if older then
    forget(user)
    tell({ older }, 'kickedOff', '[]')
  end
  redis.call('SADD', prefix .. 'apps', app)
  redis.call('SADD', key('known'), user)
  redis.call('HSET', key('session', user), 'process', process, 'socket', socket, 'since', since)
  redis.call('SADD', sessionsOf(process), cjson.encode({ app, user }))
  answer(result(0))
  local kept = redis.call('LRANGE', key('kept', user), 0, -1)
  redis.call('DEL', key('kept', user))
  if #kept > 0 then
    local id = tell({ process .. ' ' .. socket }, 'peerMessages', '[[' .. table.concat(kept, ',') .. ']]')
    for _, message in ipairs(kept) do owe(user, process, id, message) end
  end
  if not older then tellStatus(user) end
end

function steps.close(user, socket, passedOn)
  if not isSession(user, socket) then return end
  forget(user, passedOn)
  tellStatus(user)
end

-- One push per user for all changes so far, and it names all channels of that user: clients take a channel that a push does
-- not mention for an empty one.
function steps.tellCounts()
  local told = {}
  for _, entry in ipairs(redis.call('SPOP', prefix .. 'recounted', 1000)) do
    local of, channel = unpack(cjson.decode(entry))
    selectApp(of)
    for _, user in ipairs(redis.call('HKEYS', key('members', channel))) do
      if not told[base .. user] then
        told[base .. user] = true
        tell({ addressOf(user) }, 'memberCounts', '[' .. counts(redis.call('ZRANGE', key('joined', user), 0, -1)) .. ']')
      end
    end
  end
end

-- run PREFIX: OPERATION PROCESS REQUEST APP USER SOCKET ARGUMENT...
-- A process numbers its requests; one that it repeats, because it lost the connection before it heard, is not done twice.
local function run(keys, given)
  local operation, user, socket
  prefix = keys[1]
  operation, process, request, user, socket = given[1], given[2], given[3], given[5], given[6]
  selectApp(given[4])
  local lease = redis.call('ZSCORE', prefix .. 'processes', process)
  if not lease or tonumber(lease) == 0 then return 'gone' end
  if tonumber(request) <= tonumber(redis.call('GET', requestsOf(process)) or 0) then return 'done before' end
  redis.call('SET', requestsOf(process), request)
  if steps[operation] then
    steps[operation](user, socket, unpack(given, 7))
  elseif not isSession(user, socket) then
    answer(result(1))
  else
    local response = operations[operation](user, unpack(given, 7))
    if response then answer(response) end
  end
  return 'done'
end

-- Processes. One that does not renew its lease is dead, and its sessions end.

local function now()
  local time = redis.call('TIME')
  return time[1] * 1000 + math.floor(time[2] / 1000)
end

local function enter(keys, given)
  redis.call('ZADD', keys[1] .. 'processes', now() + given[2], given[1])
  return 'entered'
end

-- When nobody could renew for a while, as Redis itself was away, everybody gets that time again.
local function allowForAbsence(lease)
  local last, present = tonumber(redis.call('GET', prefix .. 'renewed') or 0), now()
  if last > 0 and present - last > lease / 2 then
    for _, name in ipairs(redis.call('ZRANGEBYSCORE', prefix .. 'processes', 1, '+inf')) do
      redis.call('ZINCRBY', prefix .. 'processes', present - last, name)
    end
  end
  redis.call('SET', prefix .. 'renewed', present)
end

-- Ends some sessions of a process that is dead.
local function bury(name, most)
  redis.call('ZADD', prefix .. 'processes', 0, name)
  for _, entry in ipairs(redis.call('SPOP', sessionsOf(name), most)) do
    local of, user = unpack(cjson.decode(entry))
    selectApp(of)
    if redis.call('HGET', key('session', user), 'process') == name then
      forget(user)
      tellStatus(user)
    end
  end
  if redis.call('SCARD', sessionsOf(name)) > 0 then return 'more' end
  redis.call('ZREM', prefix .. 'processes', name)
  redis.call('DEL', streamOf(name), requestsOf(name))
  return 'renewed'
end

-- renew PREFIX: PROCESS MILLISECONDS. "gone" when the process has been taken for dead; "more" when there is more to do.
local function renew(keys, given)
  prefix = keys[1]
  local name, lease = given[1], tonumber(given[2])
  allowForAbsence(lease)
  local mine = redis.call('ZSCORE', prefix .. 'processes', name)
  if not mine or tonumber(mine) == 0 then return 'gone' end
  redis.call('ZADD', prefix .. 'processes', now() + lease, name)
  local dead = redis.call('ZRANGEBYSCORE', prefix .. 'processes', '-inf', now(), 'LIMIT', 0, 1)
  if dead[1] then return bury(dead[1], 100) end
  return redis.call('EXISTS', prefix .. 'recounted') == 1 and 'recounted' or 'renewed'
end

local function leave(keys, given)
  prefix = keys[1]
  return bury(given[1], 1000000)
end

-- For the control endpoints and the page.

local function describeUser(user)
  local session = redis.call('HMGET', key('session', user), 'since', 'socket')
  local parts = {
    '"connected":' .. tostring(session[1] and true or false),
    '"since":' .. (session[1] or 'null'),
    '"socketId":' .. (session[2] and text(session[2]) or 'null'),
    '"channels":' .. list(redis.call('ZRANGE', key('joined', user), 0, -1)),
    '"attributes":' .. attributesAt(key('attributes', user), NOTHING),
    '"statusSubscriptions":' .. list(redis.call('ZRANGE', key('watched-status', user), 0, -1)),
    '"attributeSubscriptions":' .. list(redis.call('ZRANGE', key('watched-attributes', user), 0, -1)),
    '"offlineMessages":' .. redis.call('LLEN', key('kept', user)),
  }
  return text(user) .. ':{' .. table.concat(parts, ',') .. '}'
end

local function describeChannel(channel)
  return text(channel) .. ':{"members":' .. list(membersOf(channel)) .. ',"attributes":'
    .. attributesAt(key('channel-attributes', channel), NOTHING) .. '}'
end

local function each(items, describe)
  local parts = {}
  for i, item in ipairs(items) do parts[i] = describe(item) end
  return table.concat(parts, ',')
end

local function describe(keys, given)
  prefix = keys[1]
  return '{' .. each(redis.call('SMEMBERS', prefix .. 'apps'), function(name)
    selectApp(name)
    local pending = redis.call('ZRANGEBYSCORE', key('invitation-ends'), '(' .. given[1], '+inf')
    return text(name) .. ':{"users":{' .. each(redis.call('SMEMBERS', key('known')), describeUser) .. '},"channels":{'
      .. each(redis.call('ZRANGE', key('channels'), 0, -1), describeChannel) .. '},"invitations":['
      .. each(pending, function(pair) return redis.call('HGET', key('invitations'), pair) end) .. ']}'
  end) .. '}'
end

local function greatestChannels(keys, given)
  prefix = keys[1]
  local all, total, most, mostMembers = {}, 0, tonumber(given[1]), tonumber(given[2])
  for _, name in ipairs(redis.call('SMEMBERS', prefix .. 'apps')) do
    selectApp(name)
    total = total + redis.call('ZCARD', key('channels'))
    local flat = redis.call('ZREVRANGE', key('channels'), 0, most - 1, 'WITHSCORES')
    for i = 1, #flat, 2 do all[#all + 1] = { app = name, channel = flat[i], count = tonumber(flat[i + 1]) } end
  end
  table.sort(all, function(a, b) return a.count > b.count end)
  local shown = {}
  for i = 1, math.min(most, #all) do
    selectApp(all[i].app)
    local members = { unpack(membersOf(all[i].channel), 1, mostMembers) }
    shown[i] = '{"app":' .. text(app) .. ',"channelId":' .. text(all[i].channel) .. ',"count":' .. all[i].count
      .. ',"members":' .. list(members) .. '}'
  end
  return '{"total":' .. total .. ',"shown":[' .. table.concat(shown, ',') .. ']}'
end

redis.register_function('LIBRARY_run', run)
redis.register_function('LIBRARY_enter', enter)
redis.register_function('LIBRARY_renew', renew)
redis.register_function('LIBRARY_leave', leave)
redis.register_function('LIBRARY_describe', describe)
redis.register_function('LIBRARY_greatestChannels', greatestChannels)
