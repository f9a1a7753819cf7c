quorvex_fuzz(sip_message_fuzz SOURCES sip_message_fuzz.cpp LINKS quorvex-sipstack)
