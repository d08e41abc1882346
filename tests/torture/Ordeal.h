/// Leads a scenario ("road") past every point at which one of its calls can fail, each in a process
/// of its own. SCA_TORTURE=all takes all points, where the tests take a sample; a plan in its
/// place, as a failure prints it, takes that one.
#ifndef SCA_TESTS_TORTURE_ORDEAL_H
#define SCA_TESTS_TORTURE_ORDEAL_H

#include <string>

#include "tests/torture/FailingCalls.h"

/// Runs in a child that has one thread, descriptors of its own, and no report sink that prints.
/// Ends all that it has begun.
using Road = void (*)(const CallPlan& plan);

/// Fails the test for each point at which the road blames, crashes, hangs, or leaves a descriptor,
/// a thread or (where the leak sanitizer can tell) memory.
void Torture(Road road);

/// @name For roads
/// @{
/// Says what went wrong, without an allocation.
void BlameUnless(bool isWell, const char* text);
/// Hands in the counts of a program that the road has run.
void CountCalls(const CallCounts& counts);
/// @return The plan as the variables SCA_TORTURE and SCA_TORTURE_PLAN take it.
std::string PlanText(const CallPlan& plan);
/// @}

#endif  // SCA_TESTS_TORTURE_ORDEAL_H
