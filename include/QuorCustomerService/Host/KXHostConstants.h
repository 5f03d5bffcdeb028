// The host's constant values that the library passes to the host or compares with host values.
#pragma once

#include <cstdint>

namespace quor {

// The customer-service conversation type: the only conversation type the library uses. The
// target id of such a conversation is always the desk id.
constexpr int32_t KXConversationTypeCustomerService = 5;

// Direction of a received (incoming) message.
constexpr int32_t KXMessageDirectionReceive = 2;
// A message this side sent (hosts mark their sent records with it).
constexpr int32_t KXMessageDirectionSend = 1;

// The received status that the library gives every local message it makes.
constexpr int32_t KXReceivedStatusRead = 1;

// Storage flags of a message content type (persistentFlag).
constexpr uint32_t KXMessagePersistentFlagNone = 0;
constexpr uint32_t KXMessagePersistentFlagIsPersisted = 1;

// Log levels and the log type of every entry the library writes.
constexpr int32_t KXLogLevelError = 2;
constexpr int32_t KXLogLevelInfo = 4;
constexpr int32_t KXLogTypeCustomerService = 1024;

}  // namespace quor
