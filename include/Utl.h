// All of utl.

#ifndef UTL_H
#define UTL_H

#include "UtlApi.h"
#include "UtlArray.h"
#include "UtlBitStream.h"
#include "UtlCharSet.h"
#include "UtlCharTable.h"
#include "UtlCountingPointer.h"
#include "UtlEvent.h"
#include "UtlFile.h"
#include "UtlLog.h"
#include "UtlManualClock.h"
#include "UtlMap.h"
#include "UtlMemory.h"
#include "UtlMsg.h"
#include "UtlMsgDrivenThread.h"
#include "UtlQueue.h"
#include "UtlRawMemory.h"
#include "UtlRingArray.h"
#include "UtlSharedTimer.h"
#include "UtlStatementInfo.h"
#include "UtlString.h"
#include "UtlSyncObject.h"
#include "UtlThread.h"
#include "UtlThreadManager.h"
#include "UtlThreadRawMsg.h"
#include "UtlThreadWatchdog.h"
#include "UtlTimepiece.h"
#include "UtlTimer.h"
#include "UtlTimerInfo.h"

#endif  // UTL_H
