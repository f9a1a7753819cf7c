# Dialogs driven by any sequence of messages, with the test user agent as the one who answers.
set(USER_AGENT_DIR ${CMAKE_SOURCE_DIR}/tests/system/useragent)
quorvex_fuzz(sip_dialog_fuzz
    SOURCES
        sip_dialog_fuzz.cpp
        ${USER_AGENT_DIR}/Actor.cpp
        ${USER_AGENT_DIR}/InCall.cpp
        ${USER_AGENT_DIR}/OutCall.cpp
        ${USER_AGENT_DIR}/Script.cpp
        ${USER_AGENT_DIR}/Timers.cpp
        ${USER_AGENT_DIR}/UserAgent.cpp
    LINKS quorvex-sipstack quorvex-infra)
if(TARGET sip_dialog_fuzz)
    target_include_directories(sip_dialog_fuzz PRIVATE ${CMAKE_SOURCE_DIR}/tests/system)
endif()
