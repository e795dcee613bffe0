// The lower bound for native methods: calls that do only what every native method has to do.
#include <jni.h>

extern "C" {

JNIEXPORT jint JNICALL Java_com_talvane_orvex_bench_Floor_pin(JNIEnv* env, jclass /*self*/,
                                                              jbyteArray array) {
    const jint length = env->GetArrayLength(array);
    jbyte* bytes = env->GetByteArrayElements(array, nullptr);
    env->ReleaseByteArrayElements(array, bytes, 0);
    return length;
}

JNIEXPORT jint JNICALL Java_com_talvane_orvex_bench_Floor_call(JNIEnv* /*env*/, jclass /*self*/, jint one,
                                                               jint two, jint three) {
    return one + two + three;
}

}  // extern "C"
