// Files and directories: reading, writing and locking, text lines, the parts of a path, and what
// is done with whole trees.
//
//     File log("/data/app/log.txt", File::UTF8);
//     if (log.open(File::APPEND, File::WRITE)) {
//         log.writeLine("started");
//         log.close();
//     }
//     File::copy("/data/app", "/sdcard/app", 1);
//
// Backslashes in a path mean slashes. Every path given is refused when it is null, and by all but
// exists(), isReadOnly(), isOpened() and opening to read also when it has more than 259 bytes or a
// doubled separator. Results are 1 for done and 0 for refused where nothing else is said. Most
// operations may block on the file system and report that to the thread watchdog.
//
// Where something is made or removed in a directory whose mode does not let its owner do so, the
// directory has mode 0777 meanwhile, besides its set-id and sticky bits; the old mode comes back
// before the call returns. That never happens to a directory whose name is a symbolic link.
//
// What works through a directory (size(), copy(), erase() and the read-only operations) never leads
// into another, even if others change it at the same time: a symbolic link in it is not followed to
// a directory. The file that one leads to is taken by size() and copy(), which fail where there is
// none. Names in it may have any bytes, and be as long and as deep as memory allows.

#ifndef UTL_FILE_H
#define UTL_FILE_H

#include <string_view>

#include "UtlApi.h"
#include "UtlArray.h"
#include "UtlCountingPointer.h"
#include "UtlString.h"

namespace utl {

class LineBuffer;

// A path, and at most one descriptor opened on it. While it is open the file is locked against
// other processes and other File objects: readers share it, a writer has it alone. Nobody waits for
// a lock. A copy shares the descriptor, its position and its lock; the last one to let go syncs and
// closes it. An object is used by one thread at a time; the static operations by any.
class UTL_API File {
public:
    // The text types: how a file encodes text.
    static constexpr int SHIFT_JIS = 0;
    static constexpr int UTF8 = 1;
    static constexpr int UTF16_HIGH_FIRST = 2;
    static constexpr int UTF16_LOW_FIRST = 3;

    // The modes of open().
    static constexpr int AS_IT_IS = 0;
    static constexpr int APPEND = 1;
    static constexpr int EMPTY = 2;

    // The accesses of open().
    static constexpr int READ = 0;
    static constexpr int WRITE = 1;
    static constexpr int READ_WRITE = 2;

    // The origins of seek(). Deliberate: not in the C library's order; callers pass the numbers.
    static constexpr int FROM_START = 0;
    static constexpr int FROM_END = 1;
    static constexpr int FROM_CURRENT = 2;

    // The kinds of children().
    static constexpr int FILES = 0;
    static constexpr int DIRECTORIES = 1;
    static constexpr int ALL_KINDS = 2;

    // What read() and its relatives return at the end of the file.
    static constexpr long END_OF_FILE = -3;

    // For the `from` of seekKey(): search from the current position. Also its result: not found.
    static constexpr unsigned long long CURRENT = static_cast<unsigned long long>(-2);
    static constexpr unsigned long long NOT_FOUND = static_cast<unsigned long long>(-2);

    // Who may use the files and directories that the library makes.
    enum ModePolicy {
        DEFAULT_MODES,
        KEEP_MODES,
    };

    // What is listed or given as several paths.
    using Paths = Array<BasicString<char>, BasicString<char> const&>;

    // Closes `file`, which must live longer, when the scope ends.
    class UTL_API AutoClose {
    public:
        explicit AutoClose(File& file) : mFile(file) {}
        ~AutoClose() { mFile.close(); }
        AutoClose(AutoClose const&) = delete;
        AutoClose& operator=(AutoClose const&) = delete;

    private:
        File& mFile;
    };

    // Touches no file. `textType` is kept as it is.
    File(char const* path, int textType);
    File(File const& other);
    File& operator=(File const& other);

    // Closes the file without changing its mode. If it was ever opened to write, blocks until its
    // entry in its directory is durable; that it is not, as in a directory that may not be read, is
    // logged, unless that has gone.
    virtual ~File();

    // Opening and closing.

    // Opens the path, locked at once or not at all; the path means the locked file then. To write,
    // the file and its directories are made if they are missing. EMPTY drops what the file held,
    // once it is locked; it is refused for reading. Refused too for a directory or a FIFO, and
    // while this object is open. Waits for nobody, at no device either.
    int open(int mode, int access);

    // Lets go. The last holder of a file that was opened to write blocks until it is on the disk,
    // and leaves it with mode 0777. 0 when it was not open, and when the disk did not take what was
    // written; it is closed then too.
    int close();

    // Does nothing: what was written reaches the disk when the last holder lets go. 1.
    int flush();

    // Whether this object has it open.
    int isOpened() const;

    // 0, and no change, for what is not a text type.
    int setTextType(int type);

    // Never null.
    char const* getPath() const { return mPath.c_str(); }
    int getPath(BasicString<char>* out) const;
    int getPath(char* dst, unsigned long size) const;

    // Bytes.

    // The bytes read, END_OF_FILE at or behind the end, and where the file ends before its size;
    // -1 for failure and for a `length` of 0.
    long read(void* buffer, unsigned long length);

    // The bytes written, on a full disk fewer than `length`; -1 for failure and for a `length` of
    // 0.
    long write(void const* buffer, unsigned long length);

    // The new position; -1 for failure.
    long long seek(long long offset, int origin);
    long long position() const;

    // The size of the open file; of a closed one that of its path. -1 for failure.
    long long size() const;

    // The bytes from the position to the end; -1 for failure, and when it is not open.
    long long availableSize() const;

    // Ends the file at the current position.
    int resize();

    // Makes the file `newSize` bytes long. The position stays, or goes to the new end where it
    // would be at or behind it.
    int resize(unsigned long long newSize);

    // The position of the first `key` among the next `range` bytes after `from`, or with a `mode`
    // of 1 the one behind it; the file is left there. NOT_FOUND, with the position as it was; -1
    // for failure. Deliberate: a byte that breaks a match is not tried as the start of the next, so
    // that a key which repeats its beginning can be missed.
    unsigned long long seekKey(unsigned char const* key, unsigned long keyLength,
                               unsigned long long from, unsigned long long range, int mode);
    unsigned long long seekKey(char const* key, unsigned long long from, unsigned long long range,
                               int mode);

    // Text. The caller's is UTF-8, the file's what its text type says. Counts are bytes of the file
    // and below 5120; -1 for more. Bytes of a UTF-8 file that begin no character are not in the
    // text, though they count as read.

    // Reads at most `count` bytes and stores their text at `dst` + `dstOffset`; in a string, behind
    // its first `dstOffset` bytes. `textSize`, if given, gets the size of the text with its
    // terminator. Returns the bytes read, END_OF_FILE, or -1. A `dstSize` of 0 only asks for the
    // size.
    long readText(char* dst, unsigned long dstSize, unsigned long count, unsigned long dstOffset,
                  unsigned long* textSize);
    long readText(BasicString<char>* dst, unsigned long count, unsigned long dstOffset,
                  unsigned long* textSize);

    // Reads up to the next line end, which is not stored. Returns the line's bytes without it,
    // END_OF_FILE, or -1. The position is behind the line end afterwards; a `dstSize` of 0 only
    // asks for the size and leaves it. A `dstSize` of 5120 or more is refused. A line that is too
    // long, or finds no room, stays; findNextLineSize() goes past it.
    //
    // While nobody else has the descriptor the lines are read ahead, with 64 KB that the first one
    // allocates, if there is memory, and close() frees. What another program changes in them then
    // without a lock may not be seen; what it adds at the end is.
    long readLine(char* dst, unsigned long dstSize, unsigned long* textSize);
    long readLine(BasicString<char>* dst, unsigned long* textSize);

    // Measures the line at the position, which goes behind it: its bytes without its end, and those
    // of its end. Carriage returns count for the end only before a line feed. `dstSize` is the room
    // the caller has and changes nothing. 1, or -1 for failure.
    long findNextLineSize(unsigned long dstSize, unsigned long* lineSize, unsigned long* eolSize);

    // The bytes of the line end at the position, which stays: 2 for both characters, 1 for either,
    // 0 at the end of the file, -1 for anything else.
    long nextEOLSize();

    // Writes at most `maxBytes` bytes of the text from its byte `offset` on. The bytes written; -1
    // for failure, for a shorter text, and for SHIFT_JIS, which is only read. In UTF-16 a text of
    // one character is not written. A long text that is written piece by piece, with offsets that
    // go up, must not change in between.
    long writeText(char const* text, unsigned long maxBytes, unsigned long offset);

    // The same with a line feed behind it.
    long writeLine(char const* text);

    // Questions about a path.

    // Whether there is anything; whether it is a directory.
    static int exists(char const* path);
    static int isDirectory(char const* path);

    // Whether its owner may not write to it; 0 when there is no such path.
    static int isReadOnly(char const* path);

    // Whether anybody has the file open through a File. `sharedOnly`, if given, tells whether they
    // only read.
    static int isOpened(char const* path, bool* sharedOnly);

    // The bytes of a file, or of all files below a directory; -1 for failure.
    static long long size(char const* path);

    // The same for the path of this object.
    int exists() const;
    int isDirectory() const;
    int isReadOnly() const;

    // Changes to a path.

    // What holds for the whole process from here on. DEFAULT_MODES, as it begins: files are left
    // with 0777 by close() and copies have the mode of their source, whatever the process's mask
    // is, and a directory that its owner may not work in is opened up. KEEP_MODES: files are made
    // with 0666, copies with the permissions of their source, each less the mask; no mode changes
    // but by the operations that are there for it. Directories are made with 0777 less the mask
    // either way.
    static void setModePolicy(ModePolicy policy);

    // Sets the mode to 0555, or back to 0777; with a `recursive` of 1 that of everything below it
    // too. Ends with 0 at the first failure.
    static int applyReadOnly(char const* path, int recursive);
    static int liftReadOnly(char const* path, int recursive);

    // Changes the mode of the directory that `path` is in. `oldMode`, if given, gets the one it
    // had, which the caller puts back in the same way when the result is 1.
    static int changeParentAccessMode(char const* path, long mode, long* oldMode);

    // Makes the directory and those it is in; 1 when they are there.
    static int makeDirectories(char const* path);

    // Renames it; makes the directory it goes to. Nothing that exists, or appears meanwhile, is
    // overwritten but an empty directory by a directory, and nothing moved that anybody has open.
    static int move(char const* source, char const* destination);

    // Removes a file, or a directory with everything in it, up to the first failure. What is
    // read-only is removed only with a `force` of 1, a file that anybody has open not at all. Of a
    // symbolic link only the link goes. A path that ends in "." or ".." is refused.
    static int erase(char const* path, int force);

    // Gives the path a new file with just these bytes, at once: whoever opens it finds the old file
    // or the new one, whole, also after a power cut. Makes the directories that are missing. The
    // new file has the permissions of the old one, without set-id bits, or those of any new file;
    // its owner is this process's. Of a symbolic link the link is replaced, and what it leads to
    // left alone.
    //
    // 0 for what is no plain file, for a read-only one, for one that anybody has open to write, and
    // for a directory that cannot be read; and, logged, when the disk does not take it: the old
    // file is as it was. Only when the directory cannot be synced, at the very end, the new file is
    // there already. Who has the old file open to read goes on with that; opening it to write,
    // moving and erasing it are refused meanwhile.
    //
    // The bytes are written beside it first: a process that is killed meanwhile leaves a plain file
    // ".utl-*.tmp" in the directory. The next replacement there (in a large directory a later one)
    // removes it, unless somebody is at work: that is told by a lock, as of flock(), on the
    // directory, which nobody waits for. Such names are for nothing else.
    static int replace(char const* path, std::string_view contents);
    static int replace(char const* path, void const* bytes, unsigned long size);

    // Copies a file, or a directory with everything in it, up to the first failure; makes the
    // directories it goes to. New files take the permission bits of their source, and its set-id
    // bits where owner and group are the same. An existing file is a failure unless `overwrite` is
    // 1, and nobody has it open; what it holds behind the copied bytes stays there. A symbolic link
    // in the way of a tree's entry is a failure. False too for a file that anybody is writing, for
    // a FIFO or a device, and for a directory that would come to be inside itself.
    static bool copy(char const* source, char const* destination, int overwrite);

    // The same for the path of this object; move() and erase() are refused while it is open.
    int applyReadOnly(int recursive) const;
    int liftReadOnly(int recursive) const;
    int makeDirectories() const;
    int move(char const* destination) const;
    int erase(int force) const;
    bool copy(char const* destination, int overwrite) const;

    // Lists a directory: its path, a slash and the name for each entry, in no order. `kind` is one
    // of the constants above. An `extension`, without its dot and in any case, keeps files that
    // have it and all directories; nullptr keeps all. The last component of `path` may be a pattern
    // with wildcards for the names. `maxCount` is the most entries, 0 for no limit. `entries` is
    // emptied first. Returns the number of entries, 0 for a file, -1 for failure.
    static int children(char const* path, Paths* entries, int kind, char const* extension,
                        unsigned long maxCount);
    int children(Paths* entries, int kind, char const* extension, unsigned long maxCount) const;

    // The parts of a path, which need not exist. 0 when there is no such part or no room for all of
    // it; what is in `dst` then is not said.

    // The first component.
    static int extractVolumeName(char* dst, unsigned long size, char const* path);

    // What is before the last component, without the separator: nothing for "name" and "/name".
    static int extractDirectoryPath(char* dst, unsigned long size, char const* path);

    // The last component; with `withoutExtension` 1 without its last dot and what follows.
    static int extractFileName(char* dst, unsigned long size, char const* path,
                               int withoutExtension);

    // What follows the last dot of the last component; nothing without a dot.
    static int extractExtension(char* dst, unsigned long size, char const* path);

    // The same of this object's path. A string takes what room it needs.
    int getVolumeName(BasicString<char>* out) const;
    int getVolumeName(char* dst, unsigned long size) const;
    int getDirectoryPath(BasicString<char>* out) const;
    int getDirectoryPath(char* dst, unsigned long size) const;
    int getFileName(BasicString<char>* out, int withoutExtension) const;
    int getFileName(char* dst, unsigned long size, int withoutExtension) const;
    int getExtension(BasicString<char>* out) const;
    int getExtension(char* dst, unsigned long size) const;

private:
    friend class ReadAhead;

    // read() at another position, which stays; 0 at the end. The file is open.
    long readAt(long long position, void* buffer, unsigned long length) const;

    template <typename Store>
    long takeNextLine(bool asks, unsigned long* textSize, Store store);

    // Reads ahead from now on; nullptr where that may not be.
    LineBuffer* startLines();

    // Gives the position to the system, and what was read ahead up.
    void settleLines() const;

    int hold(int descriptor, int mode);
    bool letGo();
    long checkRead(long got) const;
    long long openedSize() const;
    bool reaches(char const* text, unsigned long offset);

    BasicString<char> mPath;
    SmartHandle<DestructCloseFile> mHandle;
    int mTextType;
    int mOpenedForWrite;
    bool mOwesDirectorySync = false;
    unsigned mForks = 0;           // of the process, before the file was opened
    LineBuffer* mLines = nullptr;  // owned; other copies have their own

    // What writeText() was given last, and how much of it is known to be there.
    char const* mWrittenText = nullptr;
    unsigned long mWrittenBegin = 0;
};

}  // namespace utl

#endif  // UTL_FILE_H
