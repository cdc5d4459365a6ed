// 8.5.1 is the first version that aligns libraries in a package to 16 KB pages.
plugins {
    id("com.android.library") version "8.7.3" apply false
}
