/** Access to USB tools through a native library: the methods, and the codes that they return. */
package com.talvane.orvex.comm;
