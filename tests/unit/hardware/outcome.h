#pragma once

#include <exception>
#include <string>

// What an action gives: its result, or the message of what it threw.
template <typename Action>
std::string Outcome(Action action)
{
    try {
        return action();
    } catch (const std::exception& e) {
        return e.what();
    }
}
