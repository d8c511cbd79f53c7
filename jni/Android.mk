# The NDK build of the library: the sources of jni/source/CMakeLists.txt, with Android's own platform
# sources in place of Linux's. tools/check_tree.py compares the two lists.

LOCAL_PATH := $(call my-dir)

# The boundary to user code: what is thrown there, through frames of all other units, ends here.
include $(CLEAR_VARS)

LOCAL_MODULE := utl_user_code
LOCAL_SRC_FILES := source/foundation/UtlUserCode.cpp
LOCAL_C_INCLUDES := $(LOCAL_PATH)/../include $(LOCAL_PATH)/source
LOCAL_CPPFLAGS := -std=c++17 -fexceptions -frtti -fvisibility=hidden -fvisibility-inlines-hidden \
    -Wall -Wextra

include $(BUILD_STATIC_LIBRARY)

include $(CLEAR_VARS)

LOCAL_MODULE := utl
LOCAL_SRC_FILES := \
    source/platform/UtlClock.cpp \
    source/platform/UtlDirectory.cpp \
    source/platform/UtlFileSystem.cpp \
    source/platform/UtlFork.cpp \
    source/platform/UtlFutex.cpp \
    source/platform/UtlKernelThread.cpp \
    source/platform/UtlKernelTimer.cpp \
    source/platform/UtlManualTime.cpp \
    source/platform/UtlMutex.cpp \
    source/platform/UtlOutput.cpp \
    source/platform/UtlPipe.cpp \
    source/memory/UtlRawMemory.cpp \
    source/foundation/UtlSyncObject.cpp \
    source/text/UtlBasicString.cpp \
    source/text/UtlCharTable.cpp \
    source/text/UtlCharTableData.cpp \
    source/text/UtlPattern.cpp \
    source/text/UtlString.cpp \
    source/text/UtlStringSearch.cpp \
    source/text/UtlWorkingBuffer.cpp \
    source/foundation/UtlLineOutput.cpp \
    source/foundation/UtlLog.cpp \
    source/foundation/UtlLogSettings.cpp \
    source/foundation/UtlLogTypes.cpp \
    source/foundation/UtlBlockingCall.cpp \
    source/foundation/UtlCountingPointer.cpp \
    source/foundation/UtlEvent.cpp \
    source/foundation/UtlStatementInfo.cpp \
    source/text/UtlCharSet.cpp \
    source/text/UtlCodePage932.cpp \
    source/bitstream/UtlBitStream.cpp \
    source/time/UtlTimepiece.cpp \
    source/time/UtlTimeCounter.cpp \
    source/files/UtlCharacters.cpp \
    source/files/UtlEntry.cpp \
    source/files/UtlFile.cpp \
    source/files/UtlFileChildren.cpp \
    source/files/UtlFileCopy.cpp \
    source/files/UtlFileLock.cpp \
    source/files/UtlFileLog.cpp \
    source/files/UtlFileModes.cpp \
    source/files/UtlFilePath.cpp \
    source/files/UtlFileReplace.cpp \
    source/files/UtlFileSeekKey.cpp \
    source/files/UtlFileText.cpp \
    source/files/UtlFileTree.cpp \
    source/files/UtlLineBuffer.cpp \
    source/files/UtlNormalPath.cpp \
    source/files/UtlOpenedDirectory.cpp \
    source/files/UtlReadAhead.cpp \
    source/files/UtlTreeWalk.cpp \
    source/memory/UtlDumpOutput.cpp \
    source/memory/UtlMemory.cpp \
    source/threads/UtlThread.cpp \
    source/threads/UtlThreadManager.cpp \
    source/threads/UtlLoopWatch.cpp \
    source/threads/UtlManualClock.cpp \
    source/messaging/UtlMsg.cpp \
    source/messaging/UtlThreadRawMsg.cpp \
    source/messaging/UtlTimerInfo.cpp \
    source/messaging/UtlWakePipe.cpp \
    source/messaging/UtlLoopTimers.cpp \
    source/messaging/UtlLoopWait.cpp \
    source/messaging/UtlLoopControl.cpp \
    source/messaging/UtlLoopList.cpp \
    source/messaging/UtlMsgLoop.cpp \
    source/messaging/UtlMsgLoopTimers.cpp \
    source/messaging/UtlMsgDrivenThread.cpp \
    source/messaging/UtlMsgHandlers.cpp \
    source/timers/UtlSharedTimerLoop.cpp \
    source/timers/UtlSharedTimer.cpp \
    source/timers/UtlTimer.cpp \
    source/timers/UtlThreadWatchdog.cpp \
    source/loop/UtlPollSet.cpp \
    source/loop/UtlLoopTasks.cpp \
    source/loop/UtlLoop.cpp
LOCAL_C_INCLUDES := $(LOCAL_PATH)/../include $(LOCAL_PATH)/source
LOCAL_EXPORT_C_INCLUDES := $(LOCAL_PATH)/../include
LOCAL_CPPFLAGS := -std=c++17 -fno-exceptions -funwind-tables -fno-semantic-interposition -frtti \
    -fvisibility=hidden -fvisibility-inlines-hidden -Wall -Wextra
LOCAL_STATIC_LIBRARIES := utl_user_code
ifeq ($(UTL_HEAP_ACCOUNTING),1)
LOCAL_CPPFLAGS += -DUTL_HEAP_ACCOUNTING
LOCAL_EXPORT_CPPFLAGS := -DUTL_HEAP_ACCOUNTING
endif
LOCAL_LDFLAGS := -Wl,-z,nodelete -Wl,--version-script=$(LOCAL_PATH)/source/utl.map
LOCAL_LDLIBS := -llog
# The module of the companion library that knows the device's time zone (class LocalTimeTzApp), where
# there is one: UTL_TIME_ZONE_LIBRARY=localtimetz. Without it, the zone that the C library knows.
ifdef UTL_TIME_ZONE_LIBRARY
LOCAL_SHARED_LIBRARIES := $(UTL_TIME_ZONE_LIBRARY)
else
LOCAL_SRC_FILES += source/platform/UtlTimeZoneSystem.cpp
endif

include $(BUILD_SHARED_LIBRARY)
