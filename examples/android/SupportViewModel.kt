// An Android app's support screen state, on the Kotlin face of the binding: the screen (Compose
// or views) collects `status`, `conversation` and `unreadCount`, and calls the rest. This file is
// what an app compiles; here it is compiled against stand-ins of androidx.lifecycle
// (standins/), as no Android SDK exists on the build machines.
package com.example.support

import androidx.lifecycle.ViewModel
import androidx.lifecycle.viewModelScope
import com.quor.cs.Customer
import com.quor.cs.RefusedException
import com.quor.cs.Status
import com.quor.cs.coroutines.SupportLine
import com.quor.cs.coroutines.SupportRefusal
import com.quor.cs.coroutines.SupportSession
import kotlinx.coroutines.flow.MutableStateFlow
import kotlinx.coroutines.flow.StateFlow
import kotlinx.coroutines.flow.asStateFlow
import kotlinx.coroutines.launch

class SupportViewModel(deskId: String, private val userId: String) : ViewModel() {
    private val session = SupportSession(deskId)
    private val refusal = MutableStateFlow<SupportRefusal?>(null)

    val status: StateFlow<Status> = session.status
    val conversation: StateFlow<List<SupportLine>> = session.conversation
    val unreadCount: StateFlow<Long> = session.unreadCount

    /** Why the last action was refused (show it, then clear it); null when none was. */
    val lastRefusal: StateFlow<SupportRefusal?> = refusal.asStateFlow()

    fun open() = act { session.start(Customer().userInfo("userId", userId)) }

    fun send(text: String) = act { session.sendText(text) }

    fun askForAgent() = act { session.askForAgent() }

    fun chooseGroup(groupId: String) = act { session.chooseGroup(groupId) }

    fun markRead() = session.markRead()

    fun refusalShown() {
        refusal.value = null
    }

    override fun onCleared() = session.close()

    // Runs an action on the main thread's scope; a refusal becomes state, not a crash.
    private fun act(action: suspend () -> Unit) {
        viewModelScope.launch {
            try {
                action()
            } catch (refused: RefusedException) {
                refusal.value = refused.result()
            }
        }
    }
}
