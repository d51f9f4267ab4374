#include "core/data-store/embedding/WriterGate.h"

#include <gtest/gtest.h>

#include <memory>

namespace kavix::test {

namespace {

// What may happen in each state, set up for each row.
struct State {
    const char* name;
    void (*setUp)(WriterGate&);
    bool letsSingleIn;
    bool letsClose;
    bool isInTransaction;
};

constexpr State STATES[] = {
    {"open", [](WriterGate&) {}, true, true, false},
    {"one inside", [](WriterGate& gate) { gate.tryEnterSingle(); }, true, false, false},
    {"two inside",
     [](WriterGate& gate) {
         gate.tryEnterSingle();
         gate.tryEnterSingle();
     },
     true, false, false},
    {"one of two left",
     [](WriterGate& gate) {
         gate.tryEnterSingle();
         gate.tryEnterSingle();
         gate.leaveSingle();
     },
     true, false, false},
    {"all left",
     [](WriterGate& gate) {
         gate.tryEnterSingle();
         gate.tryEnterSingle();
         gate.leaveSingle();
         gate.leaveSingle();
     },
     true, true, false},
    {"closed", [](WriterGate& gate) { gate.tryClose(); }, false, false, false},
    {"opened again",
     [](WriterGate& gate) {
         gate.tryClose();
         gate.open();
     },
     true, true, false},
    {"transaction",
     [](WriterGate& gate) {
         gate.tryClose();
         gate.beginTransaction();
     },
     false, false, true},
    {"a thread waits to close", [](WriterGate& gate) { gate.beginWaitingToClose(); }, false, true, false},
    {"one of two still waits to close",
     [](WriterGate& gate) {
         gate.beginWaitingToClose();
         gate.beginWaitingToClose();
         gate.endWaitingToClose();
     },
     false, true, false},
    {"no thread waits any more",
     [](WriterGate& gate) {
         gate.beginWaitingToClose();
         gate.endWaitingToClose();
     },
     true, true, false},
    {"transaction over",
     [](WriterGate& gate) {
         gate.tryClose();
         gate.beginTransaction();
         gate.open();
     },
     true, true, false},
};

TEST(WriterGate, EachStateAllowsWhatItsTableSays) {
    for (const State& row : STATES) {
        SCOPED_TRACE(row.name);
        const auto gate = std::make_unique<WriterGate>();
        row.setUp(*gate);
        EXPECT_EQ(gate->isInTransaction(), row.isInTransaction);
        const bool closed = gate->tryClose();
        EXPECT_EQ(closed, row.letsClose);
        if (closed)
            gate->open();
        EXPECT_EQ(gate->tryEnterSingle(), row.letsSingleIn);
        EXPECT_EQ(gate->isInTransaction(), row.isInTransaction);
    }
}

TEST(WriterGate, AFailedAttemptLeavesNoTrace) {
    WriterGate gate;
    ASSERT_TRUE(gate.tryClose());
    EXPECT_FALSE(gate.tryEnterSingle());
    EXPECT_FALSE(gate.tryClose());
    gate.open();
    EXPECT_TRUE(gate.tryClose()); // no thread was counted
    gate.beginTransaction();
    EXPECT_FALSE(gate.tryEnterSingle());
    gate.open();
    ASSERT_TRUE(gate.tryEnterSingle());
    EXPECT_FALSE(gate.tryClose());
    gate.leaveSingle();
    EXPECT_TRUE(gate.tryClose());
}

}

}
