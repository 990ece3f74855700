// To await the operations of client, channels and invitation kit: include this beside <KvPim/KvPimKit.h>.
#pragma once

#include "Classes/Await/KvList.h"
#include "Classes/Await/KvPending.h"
#include "Classes/Await/KvResult.h"
#include "Classes/Await/KvStream.h"
#include "Classes/Await/KvTask.h"
#include "Classes/Await/KvTogether.h"
#include "Classes/KvPimChannel.h"
#include "Classes/KvPimInvitationKit.h"
#include "Classes/KvPimKit.h"
#include "Classes/Model/KvFailure.h"
#include "Classes/Model/KvPimErrors.h"
#include "Classes/Model/KvPimEvents.h"
