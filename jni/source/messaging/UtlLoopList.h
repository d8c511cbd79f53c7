// Internal. The loops of the process that run, in the order in which they began, for a table of
// what they had to do.

#ifndef UTL_LOOP_LIST_H
#define UTL_LOOP_LIST_H

namespace utl {

class LineOutput;
class LoopControl;

class LoopList {
public:
    // What a loop keeps for the list; guarded by its lock.
    struct Link {
        LoopControl* previous = nullptr;
        LoopControl* next = nullptr;
        unsigned process = 0;  // in which it is in the list; 0 for none
    };

    static void add(LoopControl& loop);
    static void remove(LoopControl& loop);

    // A line for each, and two above them. No lock is held while one is printed.
    static void print(LineOutput& output);

    struct Row;
    class Walk;
};

}  // namespace utl

#endif  // UTL_LOOP_LIST_H
