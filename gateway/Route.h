#pragma once

#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "calleng/CallLegInfo.h"
#include "infra/ParameterTrie.h"
#include "quorvex/CallTypes.h"

namespace Quorvex
{

/// One route: which calls it is for, and what becomes of them. Immutable once read; any thread may read it.
class Route
{
public:
    enum class Service
    {
        ECHO,
        PLAY,
        TONE,
        RING,
        REJECT
    };
    enum class Ringing
    {
        NONE,
        RINGING,
        EARLY_MEDIA
    };

    /// Reads a [[route]] table. False, with what is wrong in one line, when it cannot be.
    bool read(const ParameterTrieNode& in_node, const std::string& in_strFolder, std::string& out_strError);

    /// Reads what an answered call that was placed by an operator gets: the options of a service route, but
    /// for "match". False, with what is wrong in one line.
    bool readPlaced(const ParameterTrieNode& in_node,
                    const std::string& in_strFolder,
                    std::string& out_strError);

    /// Whether every expression of the route is found in the leg's value of its key.
    bool matches(const CallLegInfo& in_leg) const;

    const std::string& getName() const { return m_strName; }
    /// Whether the route places outbound legs; otherwise it has a service.
    bool hasLegs() const { return !m_vLegs.empty(); }
    /// The legs for a call that matches, in the order in which they are to be tried: the route's parameters
    /// with the groups of its match filled in, and what the call says where the route says nothing.
    std::vector<CallLegInfo> makeLegs(const CallLegInfo& in_leg) const;
    Service getService() const { return m_service; }
    Ringing getRinging() const { return m_ringing; }
    bool hasProgress() const { return m_bProgress; }
    unsigned int getAnswerAfterMs() const { return m_uiAnswerAfterMs; }
    /// 0: never.
    unsigned int getHangupAfterMs() const { return m_uiHangupAfterMs; }
    const std::string& getFile() const { return m_strFile; }
    const std::string& getTone() const { return m_strTone; }
    /// The SIP status of service "reject".
    unsigned int getRejectStatus() const { return m_uiRejectStatus; }
    ConnectionFailureEnum getRejectFailure() const { return m_rejectFailure; }
    /// The expression for "sip.in.requestUri"; empty when the route has none.
    const std::string& getUriExpression() const { return m_strUriExpression; }
    /// What becomes of its calls, for a person: "is echoed".
    std::string describe() const;

private:
    struct Match
    {
        std::string m_strKey;
        std::regex m_expression;
    };

    std::string readMatches(const ParameterTrieNode& in_node);
    std::string readLegs(const ParameterTrieNode& in_node);
    std::string readLeg(const ParameterTrieNode& in_node);
    std::string checkOptions(const ParameterTrieNode& in_node, const std::string& in_strFolder);
    std::string readService(const ParameterTrieNode& in_node);
    std::string readOption(const ParameterTrieNode& in_node, const std::string& in_strFolder);
    std::string readReject(const ParameterTrieNode& in_node);

    std::string m_strName;
    std::vector<Match> m_vMatches;
    std::vector<CallLegInfo> m_vLegs;
    std::string m_strUriExpression;
    Service m_service = Service::ECHO;
    Ringing m_ringing = Ringing::RINGING;
    bool m_bProgress = false;
    unsigned int m_uiAnswerAfterMs = 0;
    unsigned int m_uiHangupAfterMs = 0;
    std::string m_strFile;
    std::string m_strTone;
    unsigned int m_uiRejectStatus = 486;
    ConnectionFailureEnum m_rejectFailure = eBUSY_FAILURE;
};

/// All routes, in their order.
class RouteTable
{
public:
    /// Reads the [[route]] tables of a configuration; the folder is that of relative paths. False, with the
    /// first mistake in one line, when one is wrong.
    bool read(const ParameterTrie& in_config, const std::string& in_strFolder, std::string& out_strError);

    /// The first route that matches, or null.
    const Route* find(const CallLegInfo& in_leg) const;
    const std::vector<Route>& getRoutes() const { return m_vRoutes; }

private:
    std::vector<Route> m_vRoutes;
};

}  // namespace Quorvex
