package com.quor.cs.coroutines

import com.quor.cs.AppState
import com.quor.cs.PushNotification
import com.quor.cs.XmppHost
import kotlinx.coroutines.Dispatchers
import kotlinx.coroutines.channels.Channel
import kotlinx.coroutines.flow.Flow
import kotlinx.coroutines.flow.receiveAsFlow
import kotlinx.coroutines.withContext

/**
 * The push notifications the user opened the app from. The platform's code (an Activity's
 * intent, a notification's tap handler) calls [open] with the notification's JSON, from any
 * thread; the screen that shows conversations collects [opened] and opens that desk's. Each
 * notification goes to one collector once, and waits until one collects it (a cold start opens
 * the app before its screens collect).
 */
class SupportPushNotifications {
    private val channel = Channel<PushNotification>(Channel.BUFFERED)

    /** The notifications opened, in order. */
    val opened: Flow<PushNotification> = channel.receiveAsFlow()

    /** Reads the notification and hands it to [opened]; null (and nothing handed on) for text that is not one. */
    fun open(json: String): PushNotification? {
        val notification =
            try {
                PushNotification.read(json)
            } catch (notOne: IllegalArgumentException) {
                return null
            }
        channel.trySend(notification)
        return notification
    }
}

/**
 * Back in the foreground: tells the host and suspends until it is online again (true; the
 * session resumed and what the desk sent meanwhile is arriving) or [timeoutMillis] passed
 * (false). Main-safe: the wait runs on [Dispatchers.IO].
 */
suspend fun XmppHost.returnToForeground(timeoutMillis: Long = 10_000): Boolean =
    withContext(Dispatchers.IO) {
        setAppState(AppState.FOREGROUND)
        waitOnline(timeoutMillis)
    }
