APP_ABI := armeabi-v7a
APP_PLATFORM := android-21
APP_STL := c++_shared
