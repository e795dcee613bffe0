/** Access to USB tools through a native library: the methods, and the codes that they answer with. */
package com.talvane.orvex.comm;
