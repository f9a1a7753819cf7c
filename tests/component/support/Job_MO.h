#pragma once

#include <ace/Method_Request.h>

#include <functional>
#include <utility>

namespace Quorvex::Test
{

/// A job of a test on a task's thread.
class Job_MO final : public ACE_Method_Request
{
public:
    explicit Job_MO(std::function<void()> in_job) : m_job(std::move(in_job)) {}
    int call() override
    {
        m_job();
        return 0;
    }

private:
    const std::function<void()> m_job;
};

}  // namespace Quorvex::Test
