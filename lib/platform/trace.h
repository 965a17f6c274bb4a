#pragma once

// A sink for diagnostic text such as hex dumps. Write may throw; callers catch
// and report it rather than let a trace failure end their work.
class BaseTrace {
public:
    virtual ~BaseTrace() = default;
    virtual void Write(const char* text) = 0;
    virtual void Flush() = 0;
};

class StderrTrace : public BaseTrace {
public:
    ~StderrTrace() override;
    void Write(const char* text) override;
    // Returns once everything written has left the serial line, so a trace
    // printed just before a reset is not lost in the UART's buffer.
    void Flush() override;
};
