option(VELA_JOIN_SOURCES "Compile several sources of the tools and tests at once" ON)

# Compiles a target's sources, but those with options of their own, so many at a time; 0: all at once. Most of
# their time goes into the headers of others, which are then read once. What stands in unnamed namespaces must
# differ in name between them.
function(join_sources target at_a_time)
    set_target_properties(${target} PROPERTIES
        UNITY_BUILD ${VELA_JOIN_SOURCES} UNITY_BUILD_BATCH_SIZE ${at_a_time})
endfunction()
