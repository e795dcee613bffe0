# The publisher and its addresses, for the pom, the bills of materials and the Debian packages. The addresses under
# example.org are placeholders.
set(ORVEX_TITLE "USB Access Link")
set(ORVEX_SUMMARY "Native USB access for Java, with its native libraries in the jar.")
set(ORVEX_TEAM "USB Access Link project")
set(ORVEX_MAIL maintainers@usb-access-link.example.org)
set(ORVEX_URL https://usb-access-link.example.org)
set(ORVEX_SCM ${ORVEX_URL}/source.git)
# The version in the pom; any 4.x works.
set(ORVEX_PICOCLI_VERSION 4.6.2)
