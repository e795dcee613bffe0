/** What the machine itself tells of its USB devices. Not exported. */
package com.talvane.orvex.comm.system;
