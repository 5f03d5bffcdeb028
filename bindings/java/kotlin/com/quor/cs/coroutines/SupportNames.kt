package com.quor.cs.coroutines

// The Java API's types under names that collide with nothing an Android app imports
// (android.app.Service, android.os.Message, java.util.Observer, kotlin.Result).

/** One service with one desk, the Java API's [com.quor.cs.Service]. */
typealias SupportService = com.quor.cs.Service

/** One line of the conversation, [com.quor.cs.Message]. */
typealias SupportLine = com.quor.cs.Message

/** What a service reports, [com.quor.cs.Observer]. */
typealias SupportObserver = com.quor.cs.Observer

/** Why the service refused an operation, [com.quor.cs.Result]. */
typealias SupportRefusal = com.quor.cs.Result
