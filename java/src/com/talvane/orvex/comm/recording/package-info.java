/** Recordings of what is transferred, for the safe layer and the command-line tool. */
package com.talvane.orvex.comm.recording;
