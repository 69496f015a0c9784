# Run by "cmake --install": installs what names the places of the installation. The variables of the
# places are set by CMakeLists.txt, each absolute or below the prefix.

get_filename_component(prefix "${CMAKE_INSTALL_PREFIX}" ABSOLUTE)
set(lib lib/patrol)
foreach(place sbin lib etc state log share units)
    get_filename_component(${place} "${${place}}" ABSOLUTE BASE_DIR "${prefix}")
endforeach()
file(READ "${source}/units/limits.conf" limits)
string(CONFIGURE "${limits}" limits @ONLY)

function(install_made template destination)
    get_filename_component(name ${template} NAME_WLE)
    configure_file("${source}/${template}" "${made}/${name}" @ONLY)
    file(INSTALL "${made}/${name}" DESTINATION "${destination}")
endfunction()

foreach(unit patrol.service patrol.timer patrol-boot.service patrol-request@.service
             patrol-events.service patrol-events.socket patrol-hooks.path patrol-hooks.service
             patrol-metrics.service patrol-metrics.timer)
    install_made(units/${unit}.in "${units}")
endforeach()
install_made(units/patrol.conf.in "${prefix}/lib/tmpfiles.d")
install_made(etc/environment.in "${etc}")
