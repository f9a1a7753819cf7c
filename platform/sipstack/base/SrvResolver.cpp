#include "sipstack/base/SrvResolver.h"

#include <netinet/in.h>

#define SRES_CONTEXT_T void
#include <sofia-resolv/sres.h>
#include <sofia-resolv/sres_record.h>
#include <sofia-sip/sresolv.h>

#include <algorithm>
#include <random>
#include <vector>

#include "sipstack/base/Sofia.h"

namespace Quorvex
{

namespace
{

struct Record
{
    unsigned int m_uiPriority;
    unsigned int m_uiWeight;
    std::string m_strTarget;
    std::uint16_t m_uiPort;
};

// RFC 2782: the lowest priority, and among its records by chance in proportion to their weights.
const Record* choose(const std::vector<Record>& in_vRecords)
{
    if (in_vRecords.empty())
    {
        return nullptr;
    }
    const unsigned int best = std::min_element(in_vRecords.begin(),
                                               in_vRecords.end(),
                                               [](const Record& in_a, const Record& in_b)
                                               { return in_a.m_uiPriority < in_b.m_uiPriority; })
                                  ->m_uiPriority;
    unsigned int sum = 0;
    for (const Record& record : in_vRecords)
    {
        sum += record.m_uiPriority == best ? record.m_uiWeight : 0;
    }
    static thread_local std::minstd_rand s_random{std::random_device{}()};
    unsigned int at = std::uniform_int_distribution<unsigned int>(0, sum)(s_random);
    const Record* last = nullptr;
    for (const Record& record : in_vRecords)
    {
        if (record.m_uiPriority != best)
        {
            continue;
        }
        last = &record;
        if (at <= record.m_uiWeight)
        {
            break;
        }
        at -= record.m_uiWeight;
    }
    return last;
}

}  // namespace

class SrvResolver::LookUp
{
public:
    LookUp(SrvResolver& in_resolver, Callback in_callback)
        : m_resolver(in_resolver), m_callback(std::move(in_callback))
    {
    }
    LookUp(const LookUp&) = delete;
    LookUp& operator=(const LookUp&) = delete;
    ~LookUp()
    {
        if (m_pQuery != nullptr)
        {
            sres_query_bind(m_pQuery, nullptr, nullptr);
        }
    }

    void start(const std::string& in_strName, unsigned int in_uiTimeoutMs)
    {
        if (m_resolver.m_pResolver != nullptr)
        {
            m_pQuery = sres_query(m_resolver.m_pResolver, onAnswer, this, sres_type_srv, in_strName.c_str());
        }
        // The base library's own patience is a minute long.
        m_timer.start(m_resolver.m_thread,
                      m_pQuery != nullptr ? in_uiTimeoutMs : 0,
                      [this] { m_resolver.finish(*this, std::string(), 0); });
    }

    Callback takeCallback() { return std::move(m_callback); }

private:
    static void onAnswer(sres_context_t* in_pThis, sres_query_t*, sres_record_t** in_pAnswers)
    {
        StackThread::countEvent();
        auto* const self = static_cast<LookUp*>(in_pThis);
        self->m_pQuery = nullptr;
        std::vector<Record> records;
        for (sres_record_t** answer = in_pAnswers; answer != nullptr && *answer != nullptr; ++answer)
        {
            const sres_record_t& record = **answer;
            if (record.sr_record->r_type == sres_type_srv && record.sr_record->r_status == 0 &&
                record.sr_srv->srv_target != nullptr)
            {
                std::string target = record.sr_srv->srv_target;
                if (!target.empty() && target.back() == '.')
                {
                    target.pop_back();
                }
                if (!target.empty())
                {
                    records.push_back({record.sr_srv->srv_priority,
                                       record.sr_srv->srv_weight,
                                       target,
                                       record.sr_srv->srv_port});
                }
            }
        }
        sres_free_answers(self->m_resolver.m_pResolver, in_pAnswers);
        const Record* const chosen = choose(records);
        self->m_resolver.finish(*self,
                                chosen != nullptr ? chosen->m_strTarget : std::string(),
                                chosen != nullptr ? chosen->m_uiPort : std::uint16_t{0});
    }

    SrvResolver& m_resolver;
    Callback m_callback;
    sres_query_t* m_pQuery = nullptr;
    StackTimer m_timer;
};

SrvResolver::SrvResolver(su_root_s* in_pRoot, StackThread& in_thread, const std::string& in_strSettings)
    : m_thread(in_thread),
      m_pResolver(sres_resolver_create(
          in_pRoot, in_strSettings.empty() ? nullptr : in_strSettings.c_str(), TAG_END()))
{
}

SrvResolver::~SrvResolver()
{
    m_vLookUps.clear();
    if (m_pResolver != nullptr)
    {
        sres_resolver_destroy(m_pResolver);
    }
}

void SrvResolver::lookUp(const std::string& in_strDomain,
                         bool in_bTcp,
                         unsigned int in_uiTimeoutMs,
                         Callback in_callback)
{
    m_vLookUps.push_back(std::make_unique<LookUp>(*this, std::move(in_callback)));
    m_vLookUps.back()->start((in_bTcp ? "_sip._tcp." : "_sip._udp.") + in_strDomain, in_uiTimeoutMs);
}

void SrvResolver::finish(LookUp& in_lookUp, const std::string& in_strHost, std::uint16_t in_uiPort)
{
    const Callback callback = in_lookUp.takeCallback();
    m_vLookUps.remove_if([&](const auto& in_pLookUp) { return in_pLookUp.get() == &in_lookUp; });
    callback(in_strHost, in_uiPort);
}

}  // namespace Quorvex
