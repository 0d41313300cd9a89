# Makes flaws harder to exploit, and loads no library that is not used. dev/check-binaries looks for all of it in
# what was built.
include(CheckPIESupported)
check_pie_supported()

add_compile_options(-fstack-protector-strong -fvisibility-inlines-hidden)
# The checks of buffer sizes need optimisation, and a sanitizer has its own.
add_compile_options($<$<CONFIG:Release>:-U_FORTIFY_SOURCE> $<$<CONFIG:Release>:-D_FORTIFY_SOURCE=2>)
add_link_options(-Wl,-z,relro,-z,now -Wl,--as-needed -Wl,--hash-style=gnu)
