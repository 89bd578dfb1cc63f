# Doxygen's input filter for the public headers. Their comments are plain "//" comments
# written for a reader of the header; this makes Doxygen take them as the documentation,
# leaving the headers as they are, and puts each header and its declarations into the
# group of its subsystem (the groups are defined in groups.dox). Lines are only ever
# changed in place or appended at the end, so Doxygen's warnings name the header's own
# line numbers.
#
# - The opening comment documents the file.
# - A comment on lines of its own documents the declaration after it.
# - A comment after a declaration ("int mCount;  // ...") documents that declaration, and
#   so do the comment lines aligned under it.
# - Everything inside the header's namespaces joins its group.

function groupOf(path,    name) {
    name = path
    sub(/^.*\//, "", name)
    sub(/\.h$/, "", name)
    if (name in kGroup) {
        return kGroup[name]
    }
    if (path ~ /\/zrcore\//) {
        return "zrcore"
    }
    if (path ~ /\/(zr|zrbase)\//) {
        return "zr"
    }
    return "cm"
}

function assign(group, names,    list, i) {
    split(names, list, " ")
    for (i in list) {
        kGroup[list[i]] = group
    }
}

BEGIN {
    assign("zr_values", "CBuffer CData CException CTimeStamp RPtr ZRTypes ZRVersion " \
                        "exception object_refcount string_with_format")
    assign("zr_threads", "CMutex CThread")
    assign("zr_io", "RSocket RURI path stream stream_file")
    assign("zr_timecode", "timecode timestamp")
    assign("cm_media", "CMFrame CMTrackInfo CMMetaData")
    assign("cm_runtime", "CMQueue CMQueueNode CMQueueRW CMComponent CMComponentStatus " \
                         "CMNotification CMImporter CMExporter")
    assign("cm_registry", "CMComponentInfo CMFormatObjectMap CMComponentManager " \
                          "CMComponentConfiguration")
    assign("cm_config", "CMSysConf CMLogger CMFileLog CMNetworkLog CMSNMPTrap")
    assign("cm_protocols", "CMRTP CMSDP CMRTSP")
    assign("cm_streams", "CMStream CMFileStream CMPluginStream CMFirewireStream")
    opening = 1
    trailingColumn = 0
}

# The opening comment is held back until its end, whose last line takes the @file command.
opening && /^\/\// {
    sub(/^\/\//, "///")
    held[++heldCount] = $0
    next
}

opening {
    opening = 0
    if (heldCount > 0) {
        held[heldCount] = held[heldCount] " @file"
    }
    for (i = 1; i <= heldCount; ++i) {
        print held[i]
    }
}

/^namespace [A-Za-z_]+ \{$/ {
    print $0 " /** @addtogroup " groupOf(FILENAME) " */ /** @{ */"
    next
}

/^\}  \/\/ namespace / {
    print "/** @} */ " $0
    next
}

# Comment lines under a trailing comment, starting in its column, continue it.
trailingColumn > 0 && match($0, /^ *\/\/[^\/]/) && RLENGTH - 2 == trailingColumn {
    sub(/\/\//, "///<")
    print
    next
}

{
    trailingColumn = 0
}

/^ *\/\/[^\/]/ || /^ *\/\/$/ {
    sub(/\/\//, "///")
    print
    next
}

match($0, /[;,] +\/\/ /) {
    trailingColumn = RSTART + RLENGTH - 3
    $0 = substr($0, 1, trailingColumn - 1) "///< " substr($0, trailingColumn + 3)
}

{
    print
}

END {
    print "/** @file"
    print " *  @ingroup " groupOf(FILENAME) " */"
}
