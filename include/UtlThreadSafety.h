// What a lock guards, said so that Clang checks it (-Wthread-safety); nothing for other compilers.
//
//     class Mailbox {
//         ...
//         void appendLocked(Letter const& letter) UTL_REQUIRES(mLock);
//
//         SyncObject mLock;
//         Array<Letter> mLetters UTL_GUARDED_BY(mLock);
//     };
//
// Each function is looked at alone, without those that it calls: a recursive lock may be taken
// again further down, but not twice in one function. Constructors and destructors are not looked
// at.

#ifndef UTL_THREAD_SAFETY_H
#define UTL_THREAD_SAFETY_H

#if __has_attribute(capability)
// What the macros below are made of.
#define UTL_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
// Other compilers know nothing of it.
#define UTL_THREAD_SAFETY(attribute)
#endif

// A class whose objects can be held.
#define UTL_CAPABILITY(kind) UTL_THREAD_SAFETY(capability(kind))

// A class whose objects hold such a one for a scope.
#define UTL_SCOPED_CAPABILITY UTL_THREAD_SAFETY(scoped_lockable)

// A variable that only who holds the lock may use.
#define UTL_GUARDED_BY(lock) UTL_THREAD_SAFETY(guarded_by(lock))

// A function whose caller holds the locks,
#define UTL_REQUIRES(...) UTL_THREAD_SAFETY(requires_capability(__VA_ARGS__))
// or holds none of them.
#define UTL_EXCLUDES(...) UTL_THREAD_SAFETY(locks_excluded(__VA_ARGS__))

// A function that takes the locks; without an argument its own object, here and below.
#define UTL_ACQUIRE(...) UTL_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
// One that has taken them if it returns the first argument.
#define UTL_TRY_ACQUIRE(...) UTL_THREAD_SAFETY(try_acquire_capability(__VA_ARGS__))
// One that gives them back.
#define UTL_RELEASE(...) UTL_THREAD_SAFETY(release_capability(__VA_ARGS__))

// A function that returns a reference to the lock.
#define UTL_RETURN_CAPABILITY(lock) UTL_THREAD_SAFETY(lock_returned(lock))

// A function after whose call the locks count as held: for code that knows a lock by another name
// than the one that holds it.
#define UTL_ASSERT_CAPABILITY(...) UTL_THREAD_SAFETY(assert_capability(__VA_ARGS__))

// A function that is not looked into. Why stands beside it.
#define UTL_NO_THREAD_SAFETY_ANALYSIS UTL_THREAD_SAFETY(no_thread_safety_analysis)

#endif  // UTL_THREAD_SAFETY_H
