/** The command-line tool {@code orvex-usb}. */
package com.talvane.orvex.comm.tool;
