std = "lua52c"
max_line_length = false
-- What the analyser offers.
read_globals = {
    "Proto", "ProtoField", "ProtoExpert", "Pref", "Dissector", "DissectorTable", "ByteArray", "NSTime",
    "base", "expert", "frametype", "wtap", "bit", "ENC_UTF_8", "DESEGMENT_ONE_MORE_SEGMENT",
    "register_postdissector",
}
