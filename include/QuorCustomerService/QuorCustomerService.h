// QuorCustomerService: customer service for an instant-messaging app, carried over the host IM
// library's message channel. Include this one header to get the whole public API.
#pragma once

// The dictionary type in full: apps build and read KXDictionary values.
#include <nlohmann/json.hpp>

#include "QuorCustomerService/QuorCustomerServiceExport.h"

#include "QuorCustomerService/Extension/KXCustomerServiceReceiveMessageDelegate.h"
#include "QuorCustomerService/Extension/QuorCustomerServiceExtensionModule.h"
#include "QuorCustomerService/Host/KXCoreClient.h"
#include "QuorCustomerService/Host/KXFileMessage.h"
#include "QuorCustomerService/Host/KXFwLog.h"
#include "QuorCustomerService/Host/KXHostConstants.h"
#include "QuorCustomerService/Host/KXInformationNotificationMessage.h"
#include "QuorCustomerService/Host/KXLocalConfiguration.h"
#include "QuorCustomerService/Host/KXLogArgument.h"
#include "QuorCustomerService/Host/KXMainRunLoop.h"
#include "QuorCustomerService/Host/KXMainThreadDispatcher.h"
#include "QuorCustomerService/Host/KXMessage.h"
#include "QuorCustomerService/Host/KXMessageContent.h"
#include "QuorCustomerService/Host/KXMessageContentType.h"
#include "QuorCustomerService/Host/KXNaviDataInfo.h"
#include "QuorCustomerService/Host/KXTextMessage.h"
#include "QuorCustomerService/Host/KXTypes.h"
#include "QuorCustomerService/Host/KXUserInfo.h"
#include "QuorCustomerService/Host/QuorIMLibExtensionModule.h"
#include "QuorCustomerService/KXCustomerServiceClient.h"
#include "QuorCustomerService/KXCustomerServiceConstants.h"
#include "QuorCustomerService/Message/KXCSChangeModeMessage.h"
#include "QuorCustomerService/Message/KXCSChangeModeResponseMessage.h"
#include "QuorCustomerService/Message/KXCSEvaluateMessage.h"
#include "QuorCustomerService/Message/KXCSHandShakeMessage.h"
#include "QuorCustomerService/Message/KXCSHandShakeResponseMessage.h"
#include "QuorCustomerService/Message/KXCSLeaveMessage.h"
#include "QuorCustomerService/Message/KXCSLeaveMessageItem.h"
#include "QuorCustomerService/Message/KXCSPullEvaluateMessage.h"
#include "QuorCustomerService/Message/KXCSPullLeaveMessage.h"
#include "QuorCustomerService/Message/KXCSSuspendMessage.h"
#include "QuorCustomerService/Message/KXCSTerminateMessage.h"
#include "QuorCustomerService/Message/KXCSUpdateMessage.h"
#include "QuorCustomerService/Message/KXCustomerServiceConfig.h"
#include "QuorCustomerService/Message/KXCustomerServiceGroupItem.h"
#include "QuorCustomerService/Message/KXCustomerServiceInfo.h"
#include "QuorCustomerService/Message/KXCustomerServiceSession.h"
#include "QuorCustomerService/Message/KXEvaluateItem.h"
#include "QuorCustomerService/Session/KXCSConversationMessage.h"
#include "QuorCustomerService/Session/KXCSFileType.h"
#include "QuorCustomerService/Session/KXCSService.h"

// The library's version: the number 1.0 and the version text (for example "1.0.0").
extern "C" {
QUOR_CS_EXPORT extern const double QuorCustomerServiceVersionNumber;
QUOR_CS_EXPORT extern const char QuorCustomerServiceVersionString[];
}
