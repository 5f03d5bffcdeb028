// Stand-ins of androidx.lifecycle's ViewModel and viewModelScope, so that the sample compiles and
// runs on a machine without the Android SDK. Not shipped; an app uses androidx's own, whose
// viewModelScope runs on Dispatchers.Main. Here the scope's coroutines resume on the thread that
// reports (the kit's settle()), which stands for the main thread.
package androidx.lifecycle

import kotlinx.coroutines.CoroutineScope
import kotlinx.coroutines.Dispatchers
import kotlinx.coroutines.SupervisorJob
import kotlinx.coroutines.cancel

abstract class ViewModel {
    internal val scope = CoroutineScope(SupervisorJob() + Dispatchers.Unconfined)

    protected open fun onCleared() {}

    /** What the framework calls when the screen is gone for good. */
    fun clear() {
        scope.cancel()
        onCleared()
    }
}

val ViewModel.viewModelScope: CoroutineScope
    get() = scope
