#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Waiting.h"
#include "infra/DynLibObjPtr.h"
#include "media/CTBusTonePlayerFactory.h"
#include "media/MediaEndpoint.h"
#include "media/MediaEndpointCallback.h"
#include "media/MediaEndpointSpec.h"
#include "media/MediaEngine.h"
#include "thread/UserDefHandlerTaskManager.h"

namespace Quorvex::Test
{

/// A media engine without media: a task with a thread of its own that records what it is asked and reports
/// back what the test says. By default every request succeeds, each report following the request on the
/// engine's thread.
class ScriptedMediaEngine : public MediaEngine, public UserDefHandlerTaskManager
{
public:
    /// What was asked of the engine. Operations: "create", "createIdentified", "configure", "start", "stop",
    /// "delete".
    struct Request
    {
        std::string m_strOperation;
        std::uint32_t m_uiEndpoint;  ///< counts from 1
        std::string m_strCallId;
        std::string m_strEptId;  ///< of createIdentified; for the others the identifier that they were given
        MediaEndpointSpec::Type m_specType;
        MediaEndpoint::Direction m_direction;
    };

    /// What the engine answers. Runs on the engine's thread, once for each request but "delete".
    using Answer = std::function<void(const Request& in_request, MediaEndpointCallback& io_callback)>;

    ScriptedMediaEngine();
    ~ScriptedMediaEngine() override;

    /// The one that was made last and still lives; null when there is none.
    static ScriptedMediaEngine* current();

    /// Replaces what requests are answered with; null brings the default back. Any thread.
    void setAnswer(Answer in_answer);
    /// The default: success for everything, a G.711 capacity at a made-up port for a creation.
    static void answerWithSuccess(const Request& in_request, MediaEndpointCallback& io_callback);

    std::vector<Request> getRequests() const;
    /// Waits until that operation has been asked that often.
    bool waitForRequests(const std::string& in_strOperation, std::size_t in_count) const;
    std::size_t count(const std::string& in_strOperation) const;
    /// Calls an endpoint's callback on the engine's thread; nothing when the endpoint is gone.
    void report(std::uint32_t in_uiEndpoint, std::function<void(MediaEndpointCallback&)> in_report);
    /// Endpoint callbacks that live.
    std::size_t getNumCallbacks() const;

    std::string generateEptId() override;
    MediaEndpoint* createIdentifiedEndpoint(MediaEndpointCallback* in_pCallback,
                                            const std::string& in_strCallId,
                                            const std::string& in_strEptId,
                                            MediaEndpointSpec* in_pSpec) override;
    MediaEndpoint* createEndpoint(MediaEndpointCallback* in_pCallback,
                                  const std::string& in_strCallId,
                                  MediaEndpointSpec* in_pSpec) override;

protected:
    void onSvcExit() override;

private:
    class Endpoint;
    struct Shared;

    MediaEndpoint* create(MediaEndpointCallback* in_pCallback,
                          Request in_request,
                          MediaEndpointSpec* in_pSpec);

    std::shared_ptr<Shared> m_pShared;
};

/// The same, and a tone-player factory whose operations do nothing.
class ScriptedToneMediaEngine final : public ScriptedMediaEngine, public CTBusTonePlayerFactory
{
public:
    bool attachEcho(const std::string&) override { return true; }
    bool attachFile(const std::string&, const std::string&, bool, std::string&) override { return true; }
    bool attachTone(const std::string&, const ToneDescription&) override { return true; }
    bool detach(const std::string&) override { return true; }
    bool sendDigits(const std::string&, const std::string&, unsigned) override { return true; }
};

}  // namespace Quorvex::Test
