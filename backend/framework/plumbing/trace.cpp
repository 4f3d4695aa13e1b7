#include "framework/plumbing/trace.h"

#include <easylogging++.h>

#include <new>

#include "framework/storagesinglton.h"

namespace Tarnwick::DSO::SystemFramework {

namespace {

// A line that always releases its logger. Easylogging++ swallows what is thrown while it dispatches, be it by a host's
// callback or because memory has run out, and then leaves the logger locked by this thread.
class Line : public el::base::Writer {
public:
    Line(const char* file, unsigned long line, const char* function)
        : Writer(el::Level::Trace, file, line, function, el::base::DispatchAction::NormalLog)
    {
    }
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;
    ~Line() override
    {
        processDispatch();
        if (m_proceed)  // cleared by a dispatch that was completed
            m_logger->releaseLock();
        m_proceed = false;
        m_logger = nullptr;  // the base has nothing left to do
    }
};

// A line that was not dispatched may have left its text in the logger's stream, or the stream in a failed state.
std::ostream& Emptied(std::ostream& stream)
{
    stream.clear();
    static_cast<el::base::type::stringstream_t&>(stream).str({});
    return stream;
}

}  // namespace

void TraceLine(const char* file, unsigned long line, const char* function, const char* message)
{
    try {
        (void)StorageSinglton::GetStorage();  // made and silenced before the first line
        Line(file, line, function).construct(1, el::base::consts::kDefaultLoggerId) << Emptied << message;
    } catch (const std::bad_alloc&) {
        // The line is lost; the filter goes on, even with its destruction.
    }
}

}  // namespace Tarnwick::DSO::SystemFramework
