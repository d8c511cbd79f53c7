// Internal. Owns a descriptor for a scope. Does not sync it: what it is for is only looked at, or
// must not wait for what others write.

#ifndef UTL_DESCRIPTOR_H
#define UTL_DESCRIPTOR_H

#include "platform/UtlFileSystem.h"

namespace utl {

class Descriptor {
public:
    static constexpr int NO_DESCRIPTOR = -1;

    explicit Descriptor(int descriptor = NO_DESCRIPTOR) : mDescriptor(descriptor) {}
    ~Descriptor() { close(); }
    Descriptor(Descriptor const&) = delete;
    Descriptor& operator=(Descriptor const&) = delete;

    int get() const { return mDescriptor; }
    bool isOpen() const { return mDescriptor != NO_DESCRIPTOR; }

    // Closes what it had and owns `descriptor` in its place.
    void set(int descriptor) {
        close();
        mDescriptor = descriptor;
    }

    // The caller owns it from here on.
    int release() {
        int const descriptor = mDescriptor;
        mDescriptor = NO_DESCRIPTOR;
        return descriptor;
    }

    // Leaves errno as it is.
    void close() {
        if (isOpen()) {
            platform::closeFile(release());
        }
    }

private:
    int mDescriptor;
};

}  // namespace utl

#endif  // UTL_DESCRIPTOR_H
