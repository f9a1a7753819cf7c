// The media engine libraries that LoadMethod meets, good and bad. MEDIA_LIBRARY_KIND says which one this is.

#include <cstdint>
#include <cstdlib>
#include <fstream>

#include "ScriptedMediaEngine.h"
#include "infra/Handle.h"
#include "infra/ROConfiguration.h"

#define PLAIN 1
#define TONE 2
#define FAILING 3
#define NO_TASK 4
#define EMPTY 5
#define BREAKING 6

using namespace Quorvex;

#if MEDIA_LIBRARY_KIND == NO_TASK
namespace
{
class NoTaskMediaEngine final : public MediaEngine
{
    std::string generateEptId() override { return {}; }
    MediaEndpoint* createIdentifiedEndpoint(MediaEndpointCallback* in_pCallback,
                                            const std::string&,
                                            const std::string&,
                                            MediaEndpointSpec* in_pSpec) override
    {
        return createEndpoint(in_pCallback, {}, in_pSpec);
    }
    MediaEndpoint* createEndpoint(MediaEndpointCallback* in_pCallback,
                                  const std::string&,
                                  MediaEndpointSpec* in_pSpec) override
    {
        delete in_pCallback;
        delete in_pSpec;
        return nullptr;
    }
};
}  // namespace
#endif

#if MEDIA_LIBRARY_KIND == BREAKING
namespace
{

/// Fails the operations whose name begins as the file named by QUORVEX_TEST_MEDIA_FAULT says at that moment.
void answerOrFail(const Test::ScriptedMediaEngine::Request& in_request, MediaEndpointCallback& io_callback)
{
    constexpr auto eFailed = MediaEndpointCallback::RESOURCE_STATUS;
    const char* szFile = std::getenv("QUORVEX_TEST_MEDIA_FAULT");
    std::string strFault;
    std::ifstream(szFile != nullptr ? szFile : "") >> strFault;
    if (strFault.empty() || !in_request.m_strOperation.starts_with(strFault))
    {
        Test::ScriptedMediaEngine::answerWithSuccess(in_request, io_callback);
    }
    else if (strFault == "configure")
    {
        io_callback.configureStatus(in_request.m_direction, eFailed);
    }
    else if (strFault == "start")
    {
        io_callback.startStatus(in_request.m_direction, eFailed);
    }
    else if (strFault == "stop")
    {
        io_callback.stopStatus(in_request.m_direction, eFailed);
    }
    else
    {
        io_callback.getCapacityFailure(MediaEndpoint::RX_DIRECTION);
    }
}

}  // namespace
#endif

#if MEDIA_LIBRARY_KIND != EMPTY
extern "C" __attribute__((visibility("default"))) std::int32_t LoadMethod(MediaEngine** out_pEngine,
                                                                          const TSHandle<ROConfiguration>&)
{
#if MEDIA_LIBRARY_KIND == PLAIN
    *out_pEngine = new Test::ScriptedMediaEngine;
#elif MEDIA_LIBRARY_KIND == TONE
    *out_pEngine = new Test::ScriptedToneMediaEngine;
#elif MEDIA_LIBRARY_KIND == BREAKING
    auto* pEngine = new Test::ScriptedToneMediaEngine;
    pEngine->setAnswer(&answerOrFail);
    *out_pEngine = pEngine;
#elif MEDIA_LIBRARY_KIND == NO_TASK
    *out_pEngine = new NoTaskMediaEngine;
#elif MEDIA_LIBRARY_KIND == FAILING
    static_cast<void>(out_pEngine);
    return 1;
#endif
    return 0;
}
#endif
